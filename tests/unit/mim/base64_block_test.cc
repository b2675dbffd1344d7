// Base64 runs: the wide path, the table, and a plain reading say the same for every length and every byte.
#include "mim/base64_block.h"

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kUntouched = 0x5A;

std::string plain(std::string_view in) {
    std::string out;
    unsigned held = 0, bits = 0;
    for (const char c : in) {
        held = (held << 6 | static_cast<unsigned>(kAlphabet.find(c))) & 0xFFFFFF;
        bits += 6;
        if (bits >= 8) out += static_cast<char>(held >> (bits -= 8));
    }
    return out;
}

std::string random_run(std::mt19937& random, std::size_t length) {
    std::string run(length, ' ');
    for (char& c : run) c = kAlphabet[random() % kAlphabet.size()];
    return run;
}

using Decode = bool (*)(std::string_view, char*);
constexpr Decode kRuns[] = {mim_base64_run, mim_base64_run_by_table};

TEST(Base64Block, ValueOfEveryCharacter) {
    for (unsigned code = 0; code < 256; ++code) {
        const std::size_t at = kAlphabet.find(static_cast<char>(code));
        const std::size_t expected = code == '=' ? kBase64Pad : at == std::string_view::npos ? kBase64Skip : at;
        EXPECT_EQ(kBase64Values[code], expected) << code;
    }
}

// Of an input that ends where its memory ends, into memory that ends where it may be written to.
TEST(Base64Block, EveryLength) {
    std::mt19937 random(64);
    for (std::size_t length = 0; length <= 1200; length += 4) {
        const std::string text = random_run(random, length);
        const std::vector<char> in(text.begin(), text.end());
        const std::string expected = plain(text);
        for (const Decode run : kRuns) {
            std::vector<char> out(length / 4 * 3 + kBase64Slack, kUntouched);
            ASSERT_TRUE(run({in.data(), in.size()}, out.data())) << length;
            EXPECT_EQ(std::string_view(out.data(), expected.size()), expected) << length;
        }
    }
}

TEST(Base64Block, EveryCharacterAtEveryPlace) {
    std::mt19937 random(65);
    for (const std::size_t length : {4U, 28U, 32U, 36U, 60U, 64U, 68U, 76U}) {
        std::string text = random_run(random, length);
        std::vector<char> out(length / 4 * 3 + kBase64Slack);
        for (std::size_t at = 0; at < length; ++at) {
            const char kept = text[at];
            for (unsigned code = 0; code < 256; ++code) {
                text[at] = static_cast<char>(code);
                const bool good = kAlphabet.find(text[at]) != std::string_view::npos;
                for (const Decode run : kRuns) {
                    ASSERT_EQ(run(text, out.data()), good) << length << ' ' << at << ' ' << code;
                    if (good) {
                        ASSERT_EQ(std::string_view(out.data(), length / 4 * 3), plain(text)) << length << ' ' << at;
                    }
                }
            }
            text[at] = kept;
        }
    }
}

}  // namespace
