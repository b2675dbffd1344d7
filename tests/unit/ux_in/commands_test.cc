// Commands and keyword lines: every row of the table, every form that is nearly one.
#include "ux_in/commands.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "er/er.h"
#include "nm/nm.h"
#include "os/os.h"

namespace {

struct CommandRow {
    std::string_view line;
    int type;
    std::string_view argument;
    const char* why;
};

constexpr CommandRow kCommands[] = {
    {"HELO", kHelo, "", "no argument is an empty argument"},
    {"helo host", kHelo, "host", "any case"},
    {"HELO\thost x ", kHelo, "host x ", "the rest of the line as it stands"},
    {"HELO   ", kHelo, "", "blanks only"},
    {"HELOhost", kNotRecognised, "", "the fifth character decides"},
    {"EHLO host", kEhlo, "host", "known, to be refused by its own number"},
    {"EHLOX", kNotRecognised, "", "the fifth character decides"},
    {"MAIL FROM:<u>", kMailFrom, "<u>", "the usual form"},
    {"mail from : <u>", kMailFrom, "<u>", "blanks around the colon"},
    {"MAILFROM:<u>", kMailFrom, "<u>", "the blank is optional"},
    {"MAIL\t\tFROM\t:\t<u> RET=FULL", kMailFrom, "<u> RET=FULL", "tabs"},
    {"MAIL FROM:", kMailFrom, "", "an empty argument"},
    {"MAIL FROM <u>", kNotRecognised, "", "no colon"},
    {"MAIL TO:<u>", kNotRecognised, "", "another second word"},
    {"MAIL", kNotRecognised, "", "no second word"},
    {"MAIL FRO", kNotRecognised, "", "half a second word"},
    {"RCPT TO: <u>", kRcptTo, "<u>", "blanks after the colon"},
    {"rcptto:<u>", kRcptTo, "<u>", "any case, no blank"},
    {"RCPT TO <u>", kNotRecognised, "", "no colon"},
    {"DATA", kData, "", ""},
    {"data \t ", kData, "", "blanks may follow"},
    {"DATA now", kNotRecognised, "", "no argument allowed"},
    {"QUIT", kQuit, "", ""},
    {"QUIT  ", kQuit, "", "blanks may follow"},
    {"QUIT now", kNotRecognised, "", "no argument allowed"},
    {"QUITE", kNotRecognised, "", "nothing may follow at once"},
    {"RSET", kRset, "", ""},
    {"RSET x", kNotRecognised, "", ""},
    {"NOOP", kNoop, "", ""},
    {"NOOP x", kNotRecognised, "", ""},
    {"VRFY u", kNotRecognised, "", "not offered"},
    {"EXPN u", kNotRecognised, "", "not offered"},
    {"HELP", kNotRecognised, "", "not offered"},
    {"", kNotRecognised, "", "an empty line"},
    {"QUI", kNotRecognised, "", "three letters"},
    {" QUIT", kNotRecognised, "", "nothing may stand before"},
    {"\xC3\xA9", kNotRecognised, "", "8-bit bytes"},
};

TEST(Commands, Classification) {
    for (const CommandRow& row : kCommands) {
        const ux_MailCommand command = ux_InGetSMTPCommand(row.line);
        EXPECT_EQ(command.Type, row.type) << row.line << ": " << row.why;
        EXPECT_EQ(command.pArgument, row.argument) << row.line << ": " << row.why;
    }
}

TEST(Commands, KeywordLines) {
    struct Row {
        std::string_view line;
        bool found;
        std::string_view keyword, value;
    };
    const Row rows[] = {
        {"Subject: x", true, "Subject", " x"},
        {"Subject : x: y", true, "Subject ", " x: y"},
        {"a:", true, "a", ""},
        {":b", true, "", "b"},
        {"no colon", false, "no colon", ""},
        {"", false, "", ""},
        {"a\nb: c", false, "a", ""},
        {"a: b\nc", true, "a", " b"},
        {std::string_view("a\0b: c", 6), false, "a", ""},
        {std::string_view("a: b\0c", 6), true, "a", " b"},
    };
    for (const Row& row : rows) {
        const ux_KeywordLine line = ux_InParseCommandLine(row.line);
        EXPECT_EQ(line.found, row.found) << row.line;
        EXPECT_EQ(line.pCommand, row.keyword) << row.line;
        EXPECT_EQ(line.pArgument, row.value) << row.line;
    }
}

class DelimiterTest : public ::testing::Test {
protected:
    DelimiterTest() {
        std::string name = (std::filesystem::temp_directory_path() / "morvane-XXXXXX").string();
        home_ = ::mkdtemp(name.data());
        std::filesystem::create_directories(home_ / "sys");
        os_SetHome(home_.string());
    }
    ~DelimiterTest() override {
        std::filesystem::remove_all(home_);
        nm_reset();
    }
    void write_config(std::size_t size, std::uint16_t value) {
        std::string content(512, '\0');
        content.replace(476, 2, reinterpret_cast<const char*>(&value), 2);
        std::ofstream(home_ / "sys/config", std::ios::binary) << content.substr(0, size);
    }
    int reason() {
        try {
            ux_InSetDelimChars();
        } catch (const er_Escape& escape) {
            return escape.reason();
        }
        return 0;
    }
    std::filesystem::path home_;
};

TEST_F(DelimiterTest, IsTheLowByteAtItsOffset) {
    write_config(512, '%');
    EXPECT_EQ(reason(), 0);
    EXPECT_EQ(nm_state().inet_PrimDelim, '%');
    write_config(512, 0x4100 | '!');
    EXPECT_EQ(reason(), 0);
    EXPECT_EQ(nm_state().inet_PrimDelim, '!');
}

TEST_F(DelimiterTest, ZeroIsTheSlash) {
    write_config(478, 0);
    nm_state().inet_PrimDelim = '!';
    EXPECT_EQ(reason(), 0);
    EXPECT_EQ(nm_state().inet_PrimDelim, '/');
}

TEST_F(DelimiterTest, AShortOrMissingFileIsSaid) {
    write_config(477, '/');
    EXPECT_EQ(reason(), 1420);
    write_config(0, '/');
    EXPECT_EQ(reason(), 1420);
    std::filesystem::remove(home_ / "sys/config");
    EXPECT_EQ(reason(), ENOENT);
}

TEST_F(DelimiterTest, AFileWithoutPositionsIsSaid) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(ends[0]), home_ / "sys/config");
    EXPECT_EQ(reason(), 1421);
    ::close(ends[0]);
    ::close(ends[1]);
}

}  // namespace
