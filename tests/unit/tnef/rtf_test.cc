// Compressed RTF: the examples of [MS-OXRTFCP], any text through a compressor of our own, and what is damaged.
#include "tnef/rtf.h"

#include <algorithm>
#include <cerrno>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/bytes.h"
#include "support/home.h"
#include "support/rtf_compressor.h"
#include "support/tnef_bytes.h"

namespace {

using tnef_bytes::u32;

// The plain form, or "damaged".
std::string plain(std::string_view compressed) {
    im_Item in = im_CrNewDataItem(), out = im_CrNewDataItem();
    in.write(compressed);
    tnef_Source source(in);
    try {
        tnef_DecompressRtf(source, {0, in.size()}, out);
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.reason(), EBADMSG);
        return "damaged";
    }
    std::string scratch;
    return std::string(out.view(0, static_cast<std::size_t>(out.size()), scratch));
}

// [MS-OXRTFCP], sections 4.1 and 4.2.
TEST(Rtf, TheExamplesOfTheStandard) {
    EXPECT_EQ(
        plain(bytes("2D000000 2B000000 4C5A4675 F1C5C7A7 03000A00 72637067 31323542 320AF320 68656C09 00206277 05B06C64"
                    "7D0A800F A0")),
        "{\\rtf1\\ansi\\ansicpg1252\\pard hello world}\r\n");
    EXPECT_EQ(plain(bytes("1A000000 1C000000 4C5A4675 E2D44B51 41000420 5758595A 0D6E7D01 0EB0")),
              "{\\rtf1 WXYZWXYZWXYZWXYZWXYZ}");
}

TEST(Rtf, AsItIs) {
    const std::string text = "{\\rtf1 as it is}";
    const auto stored = [&](std::uint32_t size, std::uint32_t raw) {
        return u32(size) + u32(raw) + "MELA" + u32(0) + text;
    };
    EXPECT_EQ(plain(stored(28, 16)), text);
    EXPECT_EQ(plain(stored(28, 10)), text.substr(0, 10)) << "what follows the text is padding";
    EXPECT_EQ(plain(stored(28, 17)), "damaged");
    EXPECT_EQ(plain(stored(29, 16)), "damaged") << "a size beyond the end";
    EXPECT_EQ(plain(stored(11, 0)), "damaged") << "a size that does not count the head";
    EXPECT_EQ(plain(stored(12, 0)), "") << "nothing";
    EXPECT_EQ(plain(u32(12) + u32(0) + "MELB" + u32(0)), "damaged");
    EXPECT_EQ(plain(""), "damaged");
    EXPECT_EQ(plain(u32(12) + u32(0) + "MEL"), "damaged");
}

TEST(Rtf, AnyTextComesBack) {
    const TestHome home;
    std::mt19937 random(3);
    for (int turn = 0; turn < 2000; ++turn) {
        const std::size_t size = turn < 1997 ? random() % 300 : 100'000 + random() % 300'000;
        const unsigned letters = 1 + static_cast<unsigned>(random() % 5) * 60;
        std::string text;
        while (text.size() < size) {
            if (random() % 8 == 0) text += "\\par \\pard\\plain";
            text += static_cast<char>(random() % letters);
        }
        ASSERT_TRUE(plain(compress_rtf(text)) == text) << turn;
    }
}

TEST(Rtf, ARunRepeatsWhatItItselfPutsOut) {
    const std::string text(5000, 'a');
    const std::string compressed = compress_rtf(text);
    EXPECT_LT(compressed.size(), 800U);
    EXPECT_EQ(plain(compressed), text);
}

TEST(Rtf, WithoutAnEndReference) {
    const std::string contents = bytes("00") + "abcdefgh";
    EXPECT_EQ(plain(with_rtf_head(contents, 8)), "abcdefgh");
    EXPECT_EQ(plain(with_rtf_head(contents, 9)), "damaged") << "smaller than it says";
    EXPECT_EQ(plain(with_rtf_head(contents, 7)), "damaged") << "larger than it says";
    EXPECT_EQ(plain(with_rtf_head(bytes("01 0C"), 0)), "damaged") << "half a reference";
    EXPECT_EQ(plain(with_rtf_head("", 0)), "");
}

TEST(Rtf, ReferencesIntoTheDictionarysStartAndIntoNothing) {
    EXPECT_EQ(plain(with_rtf_head(bytes("03 0005 0CF0"), 7)), "damaged") << "the end comes before the place of the end";
    EXPECT_EQ(plain(with_rtf_head(bytes("03 0005 0D60"), 7)), "{\\rtf1\\") << "seven bytes from place 0";
    EXPECT_EQ(plain(with_rtf_head(bytes("03 FF00 0D10"), 2)), std::string(2, '\0')) << "a place that was never written";
}

TEST(Rtf, CutOrChangedItIsDamagedOrSomethingElse) {
    const std::string text = "{\\rtf1\\ansi\\deff0 Some text that repeats, that repeats, some text.\\par}";
    const std::string compressed = compress_rtf(text);
    for (std::size_t size = 0; size < compressed.size(); ++size)
        EXPECT_EQ(plain(std::string_view(compressed).substr(0, size)), "damaged") << size;
    for (std::size_t at = 0; at < compressed.size(); ++at) {
        std::string changed = compressed;
        changed[at] = static_cast<char>(changed[at] ^ 0x41);
        EXPECT_EQ(plain(changed), "damaged") << at;
    }
}

// The sizes promise four gigabytes; nothing of that is taken or put out.
TEST(Rtf, SizesThatCannotBe) {
    EXPECT_EQ(plain(u32(0xFFFFFFFF) + u32(0xFFFFFFFF) + "LZFu" + u32(0)), "damaged");
    EXPECT_EQ(plain(u32(12) + u32(0xFFFFFFFF) + "LZFu" + u32(0)), "damaged");
    EXPECT_EQ(plain(u32(12) + u32(0xFFFFFFFF) + "MELA" + u32(0)), "damaged");
}

}  // namespace
