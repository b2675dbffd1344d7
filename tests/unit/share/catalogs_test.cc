// The message catalogs as gencat(1) made them: every language has every number, with the conversions that the
// gateway passes arguments for, and replies that an agent can read.
#include <nl_types.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace {

struct TextRow {
    int set;
    int number;
    std::string_view conversions;  // one letter for each argument, in the order they are passed
    std::string_view starts;       // how a reply begins; empty: a log text
};

// clang-format off
constexpr auto kTexts = std::to_array<TextRow>({
    {100, 24070, "ssssssss", ""},     // information, passed in pieces
    {100, 24071, "ssssssss", ""},     // warning, passed in pieces
    {102, 1024,  "",         ""},
    {102, 1401,  "s",        "4"},    // input ended: the agent keeps the message
    {102, 1402,  "s",        "4"},
    {102, 1403,  "",         "220 "},
    {102, 1404,  "",         "250 "},
    {102, 1405,  "s",        "503 "},
    {102, 1406,  "",         "250 "},
    {102, 1407,  "",         "354 "},
    {102, 1408,  "s",        "500 "},
    {102, 1409,  "",         "221 "},
    {102, 1410,  "",         ""},
    {102, 1411,  "",         ""},
    {102, 1412,  "",         ""},
    {102, 1418,  "",         ""},
    {102, 1420,  "",         ""},
    {102, 1421,  "",         ""},
    {102, 1424,  "s",        "4"},    // a failure of ours: the agent keeps the message
    {102, 1426,  "s",        "502 "}, // agents fall back to HELO
    {102, 1427,  "",         ""},
    {102, 1428,  "s",        "554 "}, // refused for good
    {102, 1501,  "",         ""},
    {102, 1502,  "",         ""},
    {102, 1503,  "s",        ""},
    {102, 1504,  "s",        ""},
    {102, 1505,  "s",        ""},
    {102, 1511,  "sdsds",    ""},
    {102, 1512,  "",         ""},
    {102, 1513,  "",         ""},
    {102, 1516,  "sdsds",    ""},
    {102, 1518,  "",         ""},
    {102, 1519,  "s",        ""},
    {102, 1520,  "",         ""},
    {102, 1521,  "ds",       ""},
    {102, 1522,  "ds",       ""},
    {102, 1525,  "sssss",    ""},
    {102, 1526,  "ss",       ""},
    {102, 1527,  "d",        ""},
    {102, 1528,  "",         ""},
    {102, 1530,  "",         ""},
    {102, 1531,  "",         ""},
    {102, 1532,  "",         ""},
    {102, 1533,  "",         ""},
    {102, 1540,  "ss",       ""},
    {102, 1543,  "",         ""},
    {102, 1544,  "",         ""},
    {102, 1545,  "ss",       ""},
    {102, 1547,  "ss",       ""},
    {102, 1548,  "ss",       ""},
    {102, 1549,  "s",        ""},
    {102, 1550,  "s",        ""},
    {102, 1551,  "",         ""},
});
// clang-format on

constexpr int kLargestNumber = 32767;  // NL_MSGMAX
constexpr std::array kLanguages{"C", "de", "fr"};

// build/tests/share.catalogs stands beside build/share.
std::filesystem::path catalog_path(std::string_view language) {
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    return program.parent_path().parent_path() / "share" / "nls" / language / "unix.cat";
}

class Catalog {
public:
    explicit Catalog(std::string_view language) : handle_(catopen(catalog_path(language).c_str(), 0)) {}
    ~Catalog() {
        if (is_open()) catclose(handle_);
    }
    Catalog(const Catalog&) = delete;
    Catalog& operator=(const Catalog&) = delete;
    bool is_open() const { return handle_ != reinterpret_cast<nl_catd>(-1); }
    // Null when the catalog has no such text.
    const char* text(int set, int number) const {
        const char* found = catgets(handle_, set, number, kMissing);
        return found == kMissing ? nullptr : found;
    }

private:
    static constexpr const char* kMissing = "missing";
    nl_catd handle_;
};

// "%s%d" is "sd". A conversion that is neither %s nor %d is "?".
std::string conversions(std::string_view text) {
    std::string found;
    for (std::size_t at = text.find('%'); at != text.npos; at = text.find('%', at + 2)) {
        const char what = at + 1 < text.size() ? text[at + 1] : '?';
        if (what != '%') found += what == 's' || what == 'd' ? what : '?';
    }
    return found;
}

bool is_reply(std::string_view text) { return !text.empty() && text.front() >= '0' && text.front() <= '9'; }

bool is_printable_ascii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

bool is_refusal(std::string_view text) { return text.starts_with('4') || text.starts_with('5'); }

class Catalogs : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Languages, Catalogs, testing::ValuesIn(kLanguages),
                         [](const auto& language) { return std::string(language.param); });

TEST_P(Catalogs, HoldEveryTextWithItsArguments) {
    const Catalog catalog(GetParam());
    ASSERT_TRUE(catalog.is_open()) << catalog_path(GetParam());
    for (const TextRow& row : kTexts) {
        const char* text = catalog.text(row.set, row.number);
        ASSERT_NE(text, nullptr) << row.set << '.' << row.number;
        EXPECT_STRNE(text, "") << row.set << '.' << row.number;
        EXPECT_EQ(conversions(text), row.conversions) << row.set << '.' << row.number << ": " << text;
    }
}

TEST_P(Catalogs, HoldNoOtherText) {
    const Catalog catalog(GetParam());
    ASSERT_TRUE(catalog.is_open());
    for (const int set : {100, 102}) {
        for (int number = 1; number <= kLargestNumber; ++number) {
            const bool known =
                std::ranges::any_of(kTexts, [&](const TextRow& row) { return row.set == set && row.number == number; });
            if (known) continue;
            const char* text = catalog.text(set, number);
            EXPECT_EQ(text, nullptr) << set << '.' << number << " has a text that nobody asks for";
        }
    }
}

TEST_P(Catalogs, RepliesAreOneLineOfPrintableAsciiOfTheirClass) {
    const Catalog catalog(GetParam());
    ASSERT_TRUE(catalog.is_open());
    for (const TextRow& row : kTexts) {
        const char* found = catalog.text(row.set, row.number);
        const std::string_view text = found == nullptr ? "" : found;
        EXPECT_EQ(is_reply(text), !row.starts.empty()) << row.number << ": " << text;
        EXPECT_TRUE(text.starts_with(row.starts)) << row.number << ": " << text;
        if (!is_reply(text)) continue;
        ASSERT_GT(text.size(), 4U) << row.number << ": " << text;
        EXPECT_EQ(text[3], ' ') << row.number << ": " << text;
        EXPECT_TRUE(is_printable_ascii(text)) << row.number << ": " << text;
        EXPECT_LE(text.size(), 512U - 2U - 64U) << row.number << ": no room for the host within a reply line";
    }
}

// The gateway fills a refusal as a format with the host's name; a second conversion would stay empty.
TEST_P(Catalogs, RefusalsNameTheHostOnce) {
    const Catalog catalog(GetParam());
    ASSERT_TRUE(catalog.is_open());
    for (const TextRow& row : kTexts) {
        const char* found = catalog.text(row.set, row.number);
        const std::string_view text = found == nullptr ? "" : found;
        if (!is_reply(text)) continue;
        EXPECT_EQ(conversions(text), is_refusal(text) ? "s" : "") << row.number << ": " << text;
    }
}

// A change of language must not turn a message that is kept into one that is bounced.
TEST(CatalogLanguages, AgreeOnEveryReplyCode) {
    const Catalog english("C");
    ASSERT_TRUE(english.is_open());
    for (const char* language : kLanguages) {
        const Catalog other(language);
        ASSERT_TRUE(other.is_open()) << language;
        for (const TextRow& row : kTexts) {
            if (row.starts.empty()) continue;
            const char* theirs = other.text(row.set, row.number);
            ASSERT_NE(theirs, nullptr) << language << ' ' << row.number;
            EXPECT_EQ(std::string_view(theirs).substr(0, 4),
                      std::string_view(english.text(row.set, row.number)).substr(0, 4))
                << language << ' ' << row.number;
        }
    }
}

// The notice becomes a body part without a character set.
TEST_P(Catalogs, TheUndecodedNoticeIsAscii) {
    const Catalog catalog(GetParam());
    ASSERT_TRUE(catalog.is_open());
    std::string notice = catalog.text(102, 1543);
    EXPECT_TRUE(notice.ends_with('\n'));
    std::erase(notice, '\n');
    EXPECT_TRUE(is_printable_ascii(notice)) << notice;
}

}  // namespace
