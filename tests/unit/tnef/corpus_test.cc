// Real TNEF streams: each is expanded, is the same again from its own object, withstands being cut and changed
// anywhere, and gives the files that Debian's `tnef` program extracts from it, where that is installed.
#include "support/corpus.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mapi/property_text.h"
#include "support/child.h"
#include "support/home.h"
#include "support/tnef_bytes.h"
#include "support/tnef_expanded.h"

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSignature = "\x78\x9F\x3E\x22";
constexpr std::string_view kSignatureInBase64 = "eJ8+";

// The stream in a mail's base64, or in a file that is nothing else.
std::optional<std::string> stream_in(std::string_view text) {
    const std::size_t begin =
        text.starts_with(kSignatureInBase64) ? 0 : text.find("\n" + std::string(kSignatureInBase64));
    if (begin == text.npos) return std::nullopt;
    text.remove_prefix(begin);
    std::string digits;
    for (const char c : text) {
        if (c == '-') break;  // the boundary
        digits += c;
    }
    return mapi_read_base64(digits);
}

const std::vector<CorpusFile>& streams() {
    static const std::vector<CorpusFile> all = [] {
        std::vector<CorpusFile> found;
        for (CorpusFile& file : corpus_files({".tnef", ".eml", ".txt", ".dat"})) {
            if (file.content.starts_with(kSignature))
                found.push_back(std::move(file));
            else if (auto stream = stream_in(file.content); stream && stream->starts_with(kSignature))
                found.push_back({file.name, std::move(*stream)});
        }
        return found;
    }();
    return all;
}

class Corpus : public testing::Test {
protected:
    void SetUp() override {
        if (streams().empty()) GTEST_SKIP() << "no TNEF in a corpus";
    }
    TestHome home_;
};

TEST_F(Corpus, EveryStreamIsExpandedAndItsObjectIsItsProperties) {
    for (const CorpusFile& file : streams()) {
        const Expanded out = expand(file.content);
        EXPECT_EQ(out.failure, 0) << file.name;
        EXPECT_TRUE(out.records.size() >= 3 && out.records[0].starts_with("11200 ")) << file.name;
        ASSERT_FALSE(out.objects.empty()) << file.name;
        const Expanded again = expand(out.objects[0]);
        EXPECT_EQ(again.failure, 0) << file.name;
        EXPECT_EQ(again.texts.at(0), out.texts[0]) << file.name;
        EXPECT_TRUE(again.objects.at(0) == out.objects[0]) << file.name;
    }
}

TEST_F(Corpus, EveryLineOfTheTextIsAProperty) {
    for (const CorpusFile& file : streams()) {
        std::string_view text;
        const Expanded out = expand(file.content);
        for (text = out.texts.at(0); !text.empty();) {
            const std::size_t end = text.find('\n');
            ASSERT_NE(end, text.npos) << file.name;
            const auto property = mapi_read_line(text.substr(0, end));
            ASSERT_TRUE(property) << file.name << ": " << text.substr(0, end);
            std::string again;
            mapi_append_line(again, *property);
            const bool is_unnamed = property->id >= kMapiFirstNamed;  // its tag says a type of several values too
            EXPECT_TRUE(is_unnamed || again == text.substr(0, end + 1)) << file.name << ": " << again;
            text.remove_prefix(end + 1);
        }
    }
}

// Whatever comes of it, it is all or nothing.
void all_or_nothing(std::string_view stream, const std::string& name) {
    const Expanded out = expand(stream);
    if (out.failure == 0) return;
    EXPECT_EQ(out.failure, EBADMSG) << name;
    EXPECT_TRUE(out.records.empty() && out.items.empty()) << name;
}

TEST_F(Corpus, CutAtEveryByte) {
    for (const CorpusFile& file : streams()) {
        const std::size_t step = file.content.size() / 2000 + 1;
        for (std::size_t size = 0; size < file.content.size(); size += step)
            all_or_nothing(std::string_view(file.content).substr(0, size), file.name);
    }
    EXPECT_TRUE(home_.files("data").empty());
}

// A changed byte is noticed by the checksum around it; so the sum is made right again, and the change gets further.
TEST_F(Corpus, EveryByteChanged) {
    std::mt19937 random(11);
    for (const CorpusFile& file : streams()) {
        const std::size_t step = file.content.size() / 700 + 1;
        for (std::size_t at = 0; at < file.content.size(); at += step) {
            std::string changed = file.content;
            changed[at] = static_cast<char>(random());
            all_or_nothing(changed, file.name);
            const auto difference =
                static_cast<unsigned char>(file.content[at]) - static_cast<unsigned char>(changed[at]);
            const std::size_t other = random() % changed.size();
            changed[other] = static_cast<char>(changed[other] + difference);
            all_or_nothing(changed, file.name);
        }
    }
    EXPECT_TRUE(home_.files("data").empty());
}

// --- the tnef program -----------------------------------------------------------------------------------------------

// The files that the program extracts, contents only: it names what has no name, and what has the name of another.
std::vector<std::string> extracted_at_once(const TestHome& home, std::string_view stream) {
    fs::remove_all(home.file("tmp/out"));
    fs::create_directory(home.file("tmp/out"));
    home.write("tmp/stream", stream);
    const std::string folder = home.file("tmp/out"), file = home.file("tmp/stream");
    const int status = run_in_child([&] {
        return ::execlp("tnef", "tnef", "--save-body=.body", "--number-backups", "-C", folder.c_str(), "-f",
                        file.c_str(), nullptr);
    });
    EXPECT_EQ(status, 0);
    std::vector<std::string> contents;
    for (const std::string& path : home.files("tmp/out")) contents.push_back(TestHome::read_path(path));
    return contents;
}

// An embedded message is a file to the program, a stream behind its interface identifier: that is given to it again.
std::vector<std::string> extracted(const TestHome& home, std::string_view stream) {
    std::vector<std::string> contents = extracted_at_once(home, stream);
    for (std::size_t i = 0; i < contents.size();) {
        if (contents[i].compare(0, 16, tnef_bytes::kMessageIid) != 0) {
            ++i;
            continue;
        }
        const std::vector<std::string> inner = extracted_at_once(home, contents[i].substr(16));
        contents.erase(contents.begin() + static_cast<std::ptrdiff_t>(i));
        contents.insert(contents.end(), inner.begin(), inner.end());
    }
    return contents;
}

// The program leaves an object's interface identifier before it, and a body as it stands.
bool is_same(std::string_view item, std::string_view theirs) {
    if (item == theirs) return true;
    if (theirs.size() == item.size() + 16 && theirs.substr(16) == item) return true;
    std::string lines;
    for (std::size_t i = 0; i < theirs.size(); ++i)
        if (!theirs.substr(i).starts_with("\r\n")) lines += theirs[i];
    return item == lines;
}

TEST_F(Corpus, TheTnefProgramExtractsTheSame) {
    if (run_in_child([] {
            ::close(STDOUT_FILENO);
            ::close(STDERR_FILENO);
            return ::execlp("tnef", "tnef", "--version", nullptr);
        }) != 0)
        GTEST_SKIP() << "the tnef program is not installed";
    for (const CorpusFile& file : streams()) {
        const Expanded out = expand(file.content);
        std::vector<std::string> theirs = extracted(home_, file.content);
        for (const std::string& item : out.items) {
            const auto same =
                std::find_if(theirs.begin(), theirs.end(), [&](const auto& other) { return is_same(item, other); });
            EXPECT_NE(same, theirs.end()) << file.name << ": an item of " << item.size() << " bytes";
            if (same != theirs.end()) theirs.erase(same);
        }
        EXPECT_TRUE(theirs.empty()) << file.name << ": " << theirs.size() << " files more, the first of "
                                    << (theirs.empty() ? 0 : theirs[0].size()) << " bytes";
    }
}

}  // namespace
