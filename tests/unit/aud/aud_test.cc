// The audit trail: its lines, and those that are not written.
#include "aud/aud.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/child.h"
#include "support/home.h"

namespace {

class Aud : public testing::Test {
protected:
    void SetUp() override {
        er_Reset();
        er_SetSink([this](std::string_view line) { log_.emplace_back(line); });
        aud_GetSetLogConfig(4);
    }
    void TearDown() override {
        int handle = kAudNone;
        aud_AbortTransaction(handle);
        aud_GetSetLogConfig(4);
        er_Reset();
    }

    // The trail with its times and processes taken out, for comparison as text.
    std::string trail() const {
        if (!home_.exists("logs/audit.jsonl")) return {};
        std::string text = home_.read("logs/audit.jsonl");
        text = std::regex_replace(text, std::regex(R"("time":\d+)"), "\"time\":T");
        return std::regex_replace(text, std::regex("\"pid\":" + std::to_string(::getpid()) + "\\b"), "\"pid\":P");
    }

    TestHome home_;
    std::vector<std::string> log_;
};

TEST_F(Aud, AnEndedTransactionIsOneLine) {
    int handle = aud_StartTransaction(10);
    EXPECT_NE(handle, kAudNone);
    aud_LogCurrentTime(handle, 1);
    aud_LogStr(handle, 30, "<a@example.org>");
    aud_LogORNandInet(handle, 51, "/S=b", "b@example.org");
    EXPECT_EQ(trail(), "") << "nothing before the end";
    aud_EndTransaction(handle);
    EXPECT_EQ(handle, kAudNone);
    EXPECT_EQ(trail(), R"({"type":10,"time":T,"pid":P,"entries":[{"code":1,"time":T},)"
                       R"({"code":30,"text":"<a@example.org>"},)"
                       R"({"code":51,"name":"/S=b","inet":"b@example.org"}]})"
                       "\n");
}

// More entries than are kept in memory: the line is the same, and nothing is left of where they were kept.
TEST_F(Aud, ManyEntriesAreOneLineToo) {
    constexpr int many = 50'000;
    std::string expected;
    int handle = aud_StartTransaction(10);
    for (int i = 0; i < many; ++i) {
        const std::string text = "identifier-" + std::to_string(i) + "@example.org";
        aud_LogStr(handle, 7, text);
        expected += (i == 0 ? "" : ",") + (R"({"code":7,"text":")" + text) + "\"}";
    }
    aud_EndTransaction(handle);
    EXPECT_EQ(home_.read("logs/audit.jsonl").substr(home_.read("logs/audit.jsonl").find('[') + 1), expected + "]}\n");
    EXPECT_TRUE(std::filesystem::is_empty(home_.file("tmp")));

    handle = aud_StartTransaction(10);
    aud_LogStr(handle, 30, "next");
    aud_EndTransaction(handle);
    EXPECT_TRUE(home_.read("logs/audit.jsonl").ends_with("\"entries\":[{\"code\":30,\"text\":\"next\"}]}\n"));
    EXPECT_EQ(log_.size(), 0U);
}

TEST_F(Aud, EntriesThatCannotBeKeptAreMissedAtTheEnd) {
    std::filesystem::remove_all(home_.file("tmp"));
    int handle = aud_StartTransaction(10);
    const std::string text(1000, 'x');
    for (int i = 0; i < 1000; ++i) aud_LogStr(handle, 7, text);
    aud_EndTransaction(handle);
    EXPECT_EQ(trail(), "") << "no line rather than half a line";
    ASSERT_EQ(log_.size(), 1U);
    EXPECT_NE(log_[0].find("audit trail"), std::string::npos) << log_[0];
}

TEST_F(Aud, TimesAreWholeSeconds) {
    const std::time_t before = std::time(nullptr);
    int handle = aud_StartTransaction(10);
    aud_EndTransaction(handle);
    const std::string line = home_.read("logs/audit.jsonl");
    const std::size_t at = line.find("\"time\":") + 7;
    const long long time = std::strtoll(line.c_str() + at, nullptr, 10);
    EXPECT_GE(time, before);
    EXPECT_LE(time, std::time(nullptr));
    EXPECT_EQ(line.substr(0, line.find("\"pid\"")), "{\"type\":10,\"time\":" + std::to_string(time) + ",");
}

TEST_F(Aud, LinesAreAppended) {
    for (int type : {10, 11}) {
        int handle = aud_StartTransaction(type);
        aud_EndTransaction(handle);
    }
    EXPECT_EQ(trail(),
              "{\"type\":10,\"time\":T,\"pid\":P,\"entries\":[]}\n"
              "{\"type\":11,\"time\":T,\"pid\":P,\"entries\":[]}\n");
    struct stat info {};
    ASSERT_EQ(::stat(home_.file("logs/audit.jsonl").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600U) << "whose mail it is, is private";
}

TEST_F(Aud, AnAbandonedTransactionLeavesNoLine) {
    int handle = aud_StartTransaction(10);
    aud_LogStr(handle, 30, "secret");
    aud_AbortTransaction(handle);
    EXPECT_EQ(handle, kAudNone);
    aud_LogStr(handle, 30, "secret");
    aud_EndTransaction(handle);
    EXPECT_EQ(trail(), "");
    handle = aud_StartTransaction(10);
    aud_EndTransaction(handle);
    EXPECT_EQ(trail(), "{\"type\":10,\"time\":T,\"pid\":P,\"entries\":[]}\n") << "nothing of it in the next";
}

TEST_F(Aud, ATransactionThatIsForgottenIsDroppedByTheNext) {
    int first = aud_StartTransaction(10);
    aud_LogStr(first, 30, "first");
    int second = aud_StartTransaction(11);
    aud_LogStr(first, 30, "late");
    aud_LogStr(second, 30, "second");
    aud_EndTransaction(first);
    EXPECT_EQ(trail(), "") << "the old handle ends nothing";
    aud_EndTransaction(second);
    EXPECT_EQ(trail(), "{\"type\":11,\"time\":T,\"pid\":P,\"entries\":[{\"code\":30,\"text\":\"second\"}]}\n");
}

TEST_F(Aud, AStaleHandleAbortsNothing) {
    int first = aud_StartTransaction(10);
    int second = aud_StartTransaction(11);
    aud_AbortTransaction(first);
    int none = kAudNone;
    aud_AbortTransaction(none);
    aud_EndTransaction(none);
    aud_EndTransaction(second);
    EXPECT_EQ(trail(), "{\"type\":11,\"time\":T,\"pid\":P,\"entries\":[]}\n");
}

TEST_F(Aud, AuditingCanBeSwitchedOff) {
    home_.set_keys("AUDIT = false\n");
    aud_GetSetLogConfig(4);
    int handle = aud_StartTransaction(10);
    aud_LogStr(handle, 30, "x");
    aud_EndTransaction(handle);
    EXPECT_EQ(trail(), "");
    home_.set_keys("AUDIT = true\n");
    aud_GetSetLogConfig(4);
    handle = aud_StartTransaction(10);
    aud_EndTransaction(handle);
    EXPECT_NE(trail(), "");
}

TEST_F(Aud, ABadConfigurationIsNoticedWhenAMessageBegins) {
    home_.set_keys("AUDIT = [\n");
    EXPECT_NO_THROW(aud_GetSetLogConfig(4)) << "start-up has no handler yet";
    EXPECT_THROW(aud_StartTransaction(10), er_Escape);
}

TEST_F(Aud, AFailedLineIsLoggedAndRaisesNothing) {
    std::filesystem::remove_all(home_.file("logs"));
    EXPECT_THROW(er_TracedEscape(102, 1401), er_Escape);
    int handle = aud_StartTransaction(10);
    EXPECT_NO_THROW(aud_EndTransaction(handle));
    EXPECT_EQ(handle, kAudNone);
    ASSERT_EQ(log_.size(), 1U);
    EXPECT_NE(log_[0].find("] 3 102.0 audit trail 1.2: "), std::string::npos) << log_[0];
    EXPECT_EQ(er_GetReason(), 1401) << "the status is what it was";
}

TEST_F(Aud, AFullDiskIsLoggedToo) {
    std::filesystem::create_symlink("/dev/full", home_.file("logs/audit.jsonl"));
    int handle = aud_StartTransaction(10);
    EXPECT_NO_THROW(aud_EndTransaction(handle));
    ASSERT_EQ(log_.size(), 1U);
    EXPECT_NE(log_[0].find("audit trail 1.28"), std::string::npos) << log_[0];
}

TEST_F(Aud, ALineThatWasCutShortDoesNotSpoilTheNext) {
    EXPECT_EQ(run_in_child([] {
                  limit_file_size(20);
                  int handle = aud_StartTransaction(10);
                  aud_EndTransaction(handle);
                  return 0;
              }),
              0);
    ASSERT_EQ(home_.read("logs/audit.jsonl").size(), 20U);
    int handle = aud_StartTransaction(11);
    aud_EndTransaction(handle);
    const std::string text = trail();
    EXPECT_EQ(text.substr(text.find('\n') + 1), "{\"type\":11,\"time\":T,\"pid\":P,\"entries\":[]}\n");
}

// Lines of many pages each, which a file takes in one after another.
TEST_F(Aud, ManyProcessesWriteWholeLines) {
    std::vector<pid_t> children;
    for (int n = 0; n < 16; ++n)
        children.push_back(start_child([] {
            for (int i = 0; i < 30; ++i) {
                int handle = aud_StartTransaction(10);
                aud_LogStr(handle, 30, std::string(100'000, 'x'));
                aud_EndTransaction(handle);
            }
            return 0;
        }));
    for (const pid_t child : children) EXPECT_EQ(await_child(child), 0);
    const std::string text = home_.read("logs/audit.jsonl");
    std::size_t lines = 0;
    for (std::size_t at = 0; at < text.size(); ++lines) {
        const std::size_t end = text.find('\n', at);
        ASSERT_NE(end, std::string::npos);
        ASSERT_EQ(text.compare(at, 11, "{\"type\":10,"), 0);
        ASSERT_EQ(text.compare(end - 3, 3, "}]}"), 0);
        at = end + 1;
    }
    EXPECT_EQ(lines, 480U);
}

struct JsonRow {
    std::string_view text;
    std::string_view expected;
    const char* why;
};
using namespace std::string_view_literals;
constexpr JsonRow kJsonRows[] = {
    {"", R"("")", "nothing"},
    {"plain", R"("plain")", "ASCII"},
    {"a\"b\\c/", R"("a\"b\\c/")", "what JSON escapes"},
    {"a\n\t\r\x01"sv, R"("a\u000a\u0009\u000d\u0001")", "control characters"},
    {"a\0b"sv, R"("a\u0000b")", "a NUL"},
    {"\x7f", R"("\u007f")", "delete"},
    {"caf\xC3\xA9", "\"caf\xC3\xA9\"", "UTF-8 stays"},
    {"\xE2\x82\xAC\xF0\x9F\x98\x80", "\"\xE2\x82\xAC\xF0\x9F\x98\x80\"", "longer UTF-8 stays"},
    {"caf\xE9", "\"caf\xC3\xA9\"", "a Latin-1 byte becomes its character"},
    {"\x80\xFF", "\"\xC2\x80\xC3\xBF\"", "the first and the last of them"},
    {"\xC3", "\"\xC3\x83\"", "UTF-8 that is cut off"},
    {"\xC3(", "\"\xC3\x83(\"", "a lead byte without its second"},
    {"\xE2\x82", "\"\xC3\xA2\xC2\x82\"", "two of three bytes"},
    {"\xED\xA0\x80", "\"\xC3\xAD\xC2\xA0\xC2\x80\"", "a surrogate is no character"},
    {"\xC0\x80", "\"\xC3\x80\xC2\x80\"", "an overlong NUL"},
    {"\xE9\xC3\xA9", "\"\xC3\xA9\xC3\xA9\"", "both in one text"},
};

TEST(AudJson, Strings) {
    for (const JsonRow& row : kJsonRows) EXPECT_EQ(aud_json_string(row.text), row.expected) << row.why;
}

TEST(AudJson, EightBitTextCostsNoMoreThanOther) {
    const std::string latin(8'000'000, '\xE9');
    const std::clock_t start = std::clock();
    EXPECT_EQ(aud_json_string(latin).size(), 2 * latin.size() + 2);
    EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 5.0) << "seconds for 8 MB, sanitized or not";
}

}  // namespace
