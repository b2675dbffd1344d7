// Escapes, their status, and the log.
#include "er/er.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <future>
#include <new>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Collects log lines; the service is fresh before and after each test.
class Er : public testing::Test {
protected:
    void SetUp() override { er_Reset(); }
    void TearDown() override { er_Reset(); }

    void listen(int level = 7) {
        er_SetLevel(level);
        er_SetSink([this](std::string_view line) { lines_.emplace_back(line); });
    }
    // A line without its time and process: "9 102.1505 text\n".
    static std::string tail(const std::string& line) { return line.substr(line.find("] ") + 2); }
    std::string last() const { return lines_.empty() ? "no line" : tail(lines_.back()); }

    std::vector<std::string> lines_;
};

TEST_F(Er, AnEscapeCarriesGroupReasonDetailAndPlace) {
    const int line = __LINE__ + 2;
    try {
        er_TracedEscape(102, 1401, "text");
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.group(), 102);
        EXPECT_EQ(escape.reason(), 1401);
        EXPECT_EQ(escape.detail(), "text");
        EXPECT_EQ(escape.line(), line);
        EXPECT_NE(std::string(escape.file()).find("er_test.cc"), std::string::npos);
        EXPECT_STREQ(escape.what(), "102.1401: text");
    }
    EXPECT_EQ(er_GetGroup(), 102);
    EXPECT_EQ(er_GetReason(), 1401);
    EXPECT_TRUE(er_GetLive());
}

TEST_F(Er, ASystemEscapeHasGroupOneAndTheErrnoValue) {
    EXPECT_THROW(er_SystemEscape(ENOSPC, "/home"), er_Escape);
    EXPECT_EQ(er_GetGroup(), 1);
    EXPECT_EQ(er_GetReason(), ENOSPC);
}

struct AcceptRow {
    int level;
    bool live;
    const char* why;
};
constexpr AcceptRow kAcceptRows[] = {
    {1, true, "unexpected: it travels on"},
    {4, true, "still below the border"},
    {5, false, "dealt with"},
    {7, false, "dealt with, and hardly worth a line"},
};

TEST_F(Er, AcceptingAtFiveAndAboveEndsTheError) {
    for (const AcceptRow& row : kAcceptRows) {
        EXPECT_THROW(er_TracedEscape(102, 1544), er_Escape);
        er_Accept(row.level);
        EXPECT_EQ(er_GetLive(), row.live) << row.why;
        EXPECT_EQ(er_GetReason(), 1544) << "the reason is still known";
    }
}

TEST_F(Er, AcceptingLogsTheReasonsTextAndTheDetail) {
    listen();
    er_SetTexts([](int set, int number) {
        return set == 102 && number == 1412 ? std::string_view("A part could not be written") : std::string_view{};
    });
    EXPECT_THROW(er_TracedEscape(102, 1412, "item 3"), er_Escape);
    er_Accept(5);
    EXPECT_EQ(last(), "5 102.1412 A part could not be written: item 3\n");
    EXPECT_THROW(er_TracedEscape(102, 1413, "no text"), er_Escape);
    er_Accept(1);
    EXPECT_EQ(last(), "1 102.1413 no text\n");
    EXPECT_THROW(er_SystemEscape(ENOENT, "/x\ny"), er_Escape);
    er_Accept(5);
    EXPECT_EQ(last(), "5 1.2 No such file or directory: /x\\x0Ay\n");
}

TEST_F(Er, ARefusalAsAReasonIsLoggedWithTheHostsName) {
    listen();
    er_SetTexts([](int, int) { return std::string_view("451 Try again (%s)"); });
    EXPECT_THROW(er_TracedEscape(102, 1424), er_Escape);
    er_Accept(1);
    EXPECT_EQ(last().find("()"), std::string::npos) << last();
    EXPECT_TRUE(last().starts_with("1 102.1424 451 Try again (")) << last();
}

TEST_F(Er, AStatusKeeperRestoresWhatWasThereBefore) {
    EXPECT_THROW(er_TracedEscape(102, 1401, "first"), er_Escape);
    {
        const er_StatusKeeper keeper;
        EXPECT_THROW(er_SystemEscape(ENOENT, "second"), er_Escape);
        er_Accept(5);
        EXPECT_FALSE(er_GetLive());
    }
    EXPECT_EQ(er_GetGroup(), 102);
    EXPECT_EQ(er_GetReason(), 1401);
    EXPECT_TRUE(er_GetLive());
    listen();
    er_Accept(1);
    EXPECT_EQ(last(), "1 102.1401 first\n") << "the detail is the first one's too";
}

TEST_F(Er, StatusKeepersNest) {
    EXPECT_THROW(er_TracedEscape(102, 1), er_Escape);
    {
        const er_StatusKeeper outer;
        EXPECT_THROW(er_TracedEscape(102, 2), er_Escape);
        {
            const er_StatusKeeper inner;
            EXPECT_THROW(er_TracedEscape(102, 3), er_Escape);
        }
        EXPECT_EQ(er_GetReason(), 2);
    }
    EXPECT_EQ(er_GetReason(), 1);
}

TEST_F(Er, CleanUpThatFailsIsSwallowedAndTheFirstErrorStays) {
    EXPECT_THROW(er_TracedEscape(102, 1412), er_Escape);
    er_TryIgnoring([] { er_SystemEscape(EIO, "unlink"); });
    EXPECT_EQ(er_GetReason(), 1412);
    er_TryIgnoring([] { throw std::bad_alloc(); });
    er_TryIgnoring([] { throw 7; });
    EXPECT_EQ(er_GetReason(), 1412);
    EXPECT_TRUE(er_GetLive());
}

TEST_F(Er, CleanUpInAHandlerLeavesTheErrorThatTravels) {
    try {
        try {
            er_TracedEscape(102, 1412);
        } catch (const er_Escape&) {
            er_TryIgnoring([] { er_SystemEscape(EIO, ""); });
            throw;
        }
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.reason(), 1412);
        EXPECT_EQ(er_GetReason(), 1412);
    }
}

struct TranslateRow {
    std::function<void()> work;
    int reason;
    const char* why;
};

TEST_F(Er, WhatTheStandardLibraryThrowsBecomesASystemEscape) {
    const TranslateRow rows[] = {
        {[] { throw std::bad_alloc(); }, ENOMEM, "memory"},
        {[] { throw std::length_error("long"); }, EINVAL, "an exception without a number"},
        {[] { throw std::system_error(ENOSPC, std::generic_category()); }, ENOSPC, "an errno value"},
        {[] { throw std::system_error(EIO, std::system_category()); }, EIO,
         "the system's numbers are errno values here"},
        {[] { throw std::future_error(std::future_errc::no_state); }, EINVAL, "an error that is no system_error"},
        {[] { throw std::system_error(std::make_error_code(std::future_errc::no_state)); }, EINVAL,
         "a category that numbers its own way: 3 is not ESRCH"},
        {[] { std::filesystem::directory_iterator("/no/such"); }, ENOENT, "filesystem_error"},
        {[] { throw 7; }, EINVAL, "not even an exception"},
    };
    for (const TranslateRow& row : rows) {
        er_Reset();
        try {
            er_Translate(row.work);
            ADD_FAILURE() << row.why;
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), 1) << row.why;
            EXPECT_EQ(escape.reason(), row.reason) << row.why;
            EXPECT_TRUE(er_GetLive()) << row.why;
        }
    }
}

TEST_F(Er, AnEscapePassesTranslationUnchanged) {
    try {
        er_Translate([] { er_TracedEscape(102, 1428, "TNEF"); });
        ADD_FAILURE();
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.group(), 102);
        EXPECT_EQ(escape.reason(), 1428);
        EXPECT_EQ(escape.detail(), "TNEF");
    }
    er_Translate([] {});
}

struct FormatRow {
    const char* format;
    std::vector<er_Arg> args;
    const char* expected;
    const char* why;
};

TEST_F(Er, FormatsAreFilled) {
    const er_Arg a("a"), b("b"), n(7);
    const FormatRow rows[] = {
        {"%s and %s", {a, b}, "a and b", "in order"},
        {"%2$s and %1$s", {a, b}, "b and a", "a translation's own order"},
        {"%1$s%1$s", {a, b}, "aa", "one argument twice"},
        {"%s", {n}, "7", "a number as text"},
        {"%d", {a}, "a", "a text as number"},
        {"%d %d", {er_Arg(-3), er_Arg(std::size_t{18})}, "-3 18", "signed and unsigned"},
        {"%ld%lu%lld%u", {n, n, n, n}, "7777", "lengths are understood"},
        {"%5d", {n}, "7", "a width is skipped"},
        {"100%%", {}, "100%", "a percent sign"},
        {"100% of %s", {a}, "100% of a", "a percent sign that is no conversion"},
        {"%", {a}, "%", "at the end"},
        {"%s%", {a}, "a%", "at the end, after one"},
        {"%l", {a}, "%l", "cut off"},
        {"%1$", {a}, "%1$", "cut off"},
        {"%12", {a}, "%12", "cut off"},
        {"%s %s", {a}, "a ", "a missing argument is empty"},
        {"%3$s", {a}, "", "a missing argument by position"},
        {"%0$s", {a}, "", "there is no argument before the first"},
        {"%99999999999999999999999$s", {a}, "", "a position beyond every number"},
        {"%n%x", {a}, "%n%x", "unknown conversions stay"},
        {"", {a}, "", "no format, no text"},
        {"%%s", {a}, "%s", "not a conversion"},
        {"%s", {er_Arg(static_cast<const char*>(nullptr))}, "", "no text at all"},
        {"%s", {er_Arg(std::string_view("%s"))}, "%s", "what is filled in is not a format"},
    };
    for (const FormatRow& row : rows) {
        std::string filled;
        switch (row.args.size()) {
            case 0: filled = er_Format(row.format, {}); break;
            case 1: filled = er_Format(row.format, {row.args[0]}); break;
            case 2: filled = er_Format(row.format, {row.args[0], row.args[1]}); break;
            default: filled = er_Format(row.format, {row.args[0], row.args[1], row.args[2], row.args[3]});
        }
        EXPECT_EQ(filled, row.expected) << row.format << ": " << row.why;
    }
}

struct PrintableRow {
    std::string_view text;
    std::string_view expected;
    const char* why;
};
using namespace std::string_view_literals;
constexpr PrintableRow kPrintableRows[] = {
    {"", "", "nothing"},
    {"plain ~ text", "plain ~ text", "ASCII"},
    {"a\tb\r\n", "a\\x09b\\x0D\\x0A", "control characters"},
    {"a\0b"sv, "a\\x00b", "a NUL"},
    {"\x1b[2J", "\\x1B[2J", "an escape sequence"},
    {"\x7f", "\\x7F", "delete"},
    {"caf\xC3\xA9", "caf\xC3\xA9", "UTF-8 of two bytes"},
    {"\xE2\x82\xAC", "\xE2\x82\xAC", "UTF-8 of three"},
    {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80", "UTF-8 of four"},
    {"\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF", "the last character there is"},
    {"caf\xE9", "caf\\xE9", "Latin-1"},
    {"\xC3", "\\xC3", "cut off"},
    {"\xE2\x82", "\\xE2\\x82", "cut off later"},
    {"\xF0\x9F\x98", "\\xF0\\x9F\\x98", "cut off last"},
    {"\xC3\x28", "\\xC3(", "a second byte that is none"},
    {"\x80", "\\x80", "a second byte alone"},
    {"\xC0\xAF", "\\xC0\\xAF", "overlong, two bytes"},
    {"\xC1\xBF", "\\xC1\\xBF", "overlong, two bytes"},
    {"\xE0\x9F\xBF", "\\xE0\\x9F\\xBF", "overlong, three bytes"},
    {"\xE0\xA0\x80", "\xE0\xA0\x80", "the first of three bytes"},
    {"\xF0\x8F\xBF\xBF", "\\xF0\\x8F\\xBF\\xBF", "overlong, four bytes"},
    {"\xED\xA0\x80", "\\xED\\xA0\\x80", "a surrogate"},
    {"\xED\x9F\xBF", "\xED\x9F\xBF", "the last before the surrogates"},
    {"\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80", "beyond Unicode"},
    {"\xF5\x80\x80\x80", "\\xF5\\x80\\x80\\x80", "no lead byte"},
    {"\xFE\xFF", "\\xFE\\xFF", "no lead bytes"},
    {"\xC2\x9B[2J", "\\xC2\\x9B[2J", "an escape sequence in one character (U+009B)"},
    {"\xC2\x80\xC2\x9F", "\\xC2\\x80\\xC2\\x9F", "the upper control characters, first and last"},
    {"\xC2\xA0", "\xC2\xA0", "the first that is none of them"},
    {"a\\x41", "a\\x41", "a backslash stays"},
};

TEST_F(Er, LogTextIsMadePrintable) {
    for (const PrintableRow& row : kPrintableRows) EXPECT_EQ(er_Printable(row.text), row.expected) << row.why;
}

TEST_F(Er, ALineHasTimeProcessLevelNumberAndText) {
    er_Init("unix.in", 9);
    er_SetSink([this](std::string_view line) { lines_.emplace_back(line); });
    er_LogMsg(9, 102, 1505, "<u@example.org>");
    ASSERT_EQ(lines_.size(), 1U);
    const std::regex form(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z unix\.in\[)" + std::to_string(::getpid()) +
                          R"(\] 9 102\.1505 <u@example\.org>\n)");
    EXPECT_TRUE(std::regex_match(lines_[0], form)) << lines_[0];
}

TEST_F(Er, TheTextOfTheCatalogIsFilled) {
    listen();
    er_SetTexts([](int set, int number) {
        return set == 102 && number == 1511 ? std::string_view("Part '%s' %d") : std::string_view{};
    });
    er_LogMsg(7, 102, 1511, "a\nb", 3);
    EXPECT_EQ(last(), "7 102.1511 Part 'a\\x0Ab' 3\n");
    er_LogMsg(7, 102, 1512, "a", 3, std::string("c"));
    EXPECT_EQ(last(), "7 102.1512 a 3 c\n") << "without a text the arguments stand alone";
    er_LogMsg(7, 100, 24071);
    EXPECT_EQ(last(), "7 100.24071 \n") << "no text, no arguments";
}

TEST_F(Er, LinesAboveTheLevelAreNotWritten) {
    listen(7);
    er_LogMsg(7, 102, 1);
    er_LogMsg(8, 102, 2);
    er_LogMsg(9, 102, 3);
    er_LogMsg(3, 102, 4);
    ASSERT_EQ(lines_.size(), 2U);
    EXPECT_EQ(tail(lines_[0]), "7 102.1 \n");
    EXPECT_EQ(tail(lines_[1]), "3 102.4 \n");
    EXPECT_TRUE(er_Wanted(7));
    EXPECT_FALSE(er_Wanted(8));
}

TEST_F(Er, RoutinesAreTracedAtLevelFifteenOnly) {
    listen(15);
    {
        const er_Trace trace("ux_InParseDate");
        EXPECT_EQ(last(), "15 102.0 enter ux_InParseDate\n");
    }
    EXPECT_EQ(last(), "15 102.0 leave ux_InParseDate\n");
    er_SetLevel(14);
    { const er_Trace trace("ux_InParseDate"); }
    EXPECT_EQ(lines_.size(), 2U);
}

TEST_F(Er, ARoutineLeftByAnEscapeIsTracedToo) {
    listen(15);
    try {
        const er_Trace trace("ux_InMain");
        er_TracedEscape(102, 1401);
    } catch (const er_Escape&) {}
    EXPECT_EQ(last(), "15 102.0 leave ux_InMain\n");
}

TEST_F(Er, LinesWaitForASink) {
    er_LogMsg(7, 102, 1);
    er_LogMsg(3, 102, 2);
    er_LogMsg(9, 102, 3);
    listen();
    ASSERT_EQ(lines_.size(), 2U) << "9 was above the level when it was written";
    EXPECT_EQ(tail(lines_[0]), "7 102.1 \n");
    er_SetSink([this](std::string_view line) { lines_.emplace_back(line); });
    EXPECT_EQ(lines_.size(), 2U) << "they are written once";
}

TEST_F(Er, WaitingLinesAboveTheLevelThatHoldsInTheEndAreDropped) {
    er_SetLevel(11);
    er_LogMsg(11, 102, 1);
    er_LogMsg(3, 102, 2);
    listen(5);
    ASSERT_EQ(lines_.size(), 1U);
    EXPECT_EQ(tail(lines_[0]), "3 102.2 \n");
}

TEST_F(Er, AThousandLinesWaitThenTheOldestGo) {
    for (int number = 1; number <= 1000; ++number) er_LogMsg(7, 102, number);
    er_LogMsg(7, 102, 1001);
    listen();
    ASSERT_EQ(lines_.size(), 1000U);
    EXPECT_EQ(tail(lines_.front()), "7 102.2 \n");
    EXPECT_EQ(tail(lines_.back()), "7 102.1001 \n");
}

TEST_F(Er, NothingThatHappensInTheLogRaises) {
    er_LogMsg(7, 102, 1);
    const auto bad_sink = [](std::string_view) { throw std::runtime_error("disk"); };
    EXPECT_NO_THROW(er_SetSink(bad_sink));
    EXPECT_NO_THROW(er_LogMsg(7, 102, 1));
    er_SetTexts([](int, int) -> std::string_view { throw std::bad_alloc(); });
    EXPECT_NO_THROW(er_LogMsg(7, 102, 1));
    EXPECT_THROW(er_TracedEscape(102, 1), er_Escape);
    EXPECT_NO_THROW(er_Accept(5));
    EXPECT_FALSE(er_GetLive());
    er_SetLevel(15);
    EXPECT_NO_THROW(er_RealLogProc(15, "x", 1));
}

TEST_F(Er, ResetForgetsEverything) {
    listen(11);
    EXPECT_THROW(er_TracedEscape(102, 1), er_Escape);
    const std::size_t lines = lines_.size();
    er_Reset();
    EXPECT_FALSE(er_GetLive());
    EXPECT_EQ(er_GetGroup(), 0);
    EXPECT_FALSE(er_Wanted(8));
    er_LogMsg(3, 102, 1);
    EXPECT_EQ(lines_.size(), lines);
}

TEST(ErUtf8, LengthOfTheFirstCharacter) {
    EXPECT_EQ(er_utf8_length(""), 0U);
    EXPECT_EQ(er_utf8_length("a\xC3"), 1U);
    EXPECT_EQ(er_utf8_length("\xC3\xA9z"), 2U);
    EXPECT_EQ(er_utf8_length("\xE2\x82\xAC"), 3U);
    EXPECT_EQ(er_utf8_length("\xF0\x9F\x98\x80"), 4U);
    EXPECT_EQ(er_utf8_length("\xA9"), 0U);
}

}  // namespace
