// File names and dispositions.
#include "ux_mimein/disposition.h"

#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/home.h"
#include "support/shown_records.h"
#include "tf/record.h"

namespace {

TEST(MimeFilename, Rows) {
    struct Row {
        const char *type, *disposition, *name, *why;
    };
    const Row rows[] = {
        {"", "", "", "nothing"},
        {"x/y", "attachment", "", "no name"},
        {"", "attachment; filename=d", "d", "of the disposition"},
        {"x/y; name=t", "", "t", "of the type"},
        {"x/y; name=t", "attachment; filename=d", "d", "the disposition's goes first"},
        {"x/y; name*=us-ascii''ts", "attachment; filename=d", "d", "whatever the form"},
        {"x/y; name=t; name*=us-ascii''ts", "", "ts", "the form of RFC 2231 goes before the plain one"},
        {"x/y; name=t", "attachment; filename=d; filename*=us-ascii''ds", "ds", "of the disposition too"},
        {"x/y; filename=f", "inline; name=n", "", "each field has its own parameter"},
        {"x/y; NAME=t", "", "t", "in any case"},
        {"", "attachment; FileName*=UTF-8''d", "d", "in any case"},
        {"", "attachment; filename*=utf-8''%C3%BCbel.pdf", "=?UTF-8?B?w7xiZWwucGRm?=", "as encoded words"},
        {"", "attachment; filename*=utf-8'en'a%20b", "a b", "plain text stays plain"},
        {"", "attachment; filename*0=a; filename*1=b.pdf", "ab.pdf", "sections"},
        {"", "attachment; filename*1=b.pdf; filename*0=a", "ab.pdf", "in any order"},
        {"", "attachment; filename*0*=utf-8''%C3; filename*1*=%BC.txt",
         "=?UTF-8?B?w7wudHh0?=", "a character that is cut in two"},
        {"", "attachment; filename*=iso-8859-1''%FC", "=?ISO-8859-1?Q?=FC?=", "in its own set"},
        {"", "attachment; filename*=x-none''%FC", "=?x-none?Q?=FC?=", "of a set that nobody knows"},
        {"", "attachment; filename*=plain", "plain", "without a set and language"},
        {"", "attachment; filename*=''%C3%BC", "=?UTF-8?B?w7w=?=", "an empty set: UTF-8 when it reads as such"},
        {"", "attachment; filename=\"=?utf-8?q?=C3=BC?=\"", "=?utf-8?q?=C3=BC?=", "encoded words as they are"},
        {"", "attachment; filename==?utf-8?q?=C3=BC?=", "=?utf-8?q?=C3=BC?=", "without quotes too"},
        {"", "attachment; filename=\"a;b\"", "a;b", "a quoted semicolon"},
        {"", "attachment; filename=\"a\\\"b\"", "a\"b", "a quoted quote"},
        {"", "attachment; filename=\"C:\\new\\file.txt\"", "C:\\new\\file.txt", "a path of Windows"},
        {"", "attachment; filename=my file.txt ; x=y", "my file.txt", "blanks without quotes"},
        {"", "attachment; filename=\"a b; x=y", "a b", "a quote that is not closed"},
        {"", "attachment; filename=a; filename=b", "a", "the first of two"},
        {"", "attachment; filename=\"\"", "", "an empty one is one"},
        {"x/y; name=t", "attachment; filename=\"\"", "", "so the type's is not asked"},
        {"x/y; name=t", "attachment; filename", "t", "a name without a value is none"},
        {"", "attachment filename=a", "a", "a missing semicolon"},
        {"", "filename=a", "a", "a missing disposition"},
        {"", "attachment;filename=a", "a", "as unfolding joins them"},
        {"", "attachment; filename=gr\xfcn", "gr\xfcn", "8-bit bytes as they are"},
        {"x/y name=t", "", "t", "a missing semicolon in the type"},
        {"text; name=t", "", "t", "a type without a subtype"},
    };
    for (const Row& row : rows) EXPECT_EQ(uxm_GetMimeFilename(row.type, row.disposition), row.name) << row.why;
}

class Disposition : public testing::Test {
protected:
    struct Parsed {
        std::string value;
        std::vector<std::string> dates;
    };
    static Parsed parse(std::string_view text) {
        tf_File file = tf_CreateFile();
        Parsed parsed;
        parsed.value = uxm_ParseContentDisposition(text, file);
        tf_Record record;
        for (tf_UnreadFile(file); tf_ReadRecord(file, record);)
            parsed.dates.push_back(std::to_string(record.type()) + " " + std::to_string(record.get32(16)) + " " +
                                   std::to_string(record.get16(20)));
        return parsed;
    }
    TestHome home_;
};

TEST_F(Disposition, Values) {
    struct Row {
        const char *text, *value, *why;
    };
    const Row rows[] = {
        {"", "", "none"},
        {"attachment", "attachment", "plain"},
        {"  InLine ; filename=x", "InLine", "trimmed, in its own case"},
        {"attachment (a comment)", "attachment", "without comments"},
        {"\"attachment\"; x=y", "attachment", "without quotes"},
        {"; filename=x", "", "an empty one"},
        {"filename=x", "", "or none before the parameters"},
        {"1234567890123456789", "1234567890123456789", "19 characters"},
        {"12345678901234567890", "12345678901234567890", "20"},
        {"123456789012345678901", "12345678901234567890", "21 are cut"},
        {"attachmentfilename=x", "", "as unfolding joins them without a semicolon"},
    };
    for (const Row& row : rows) {
        const Parsed parsed = parse(row.text);
        EXPECT_EQ(parsed.value, row.value) << row.why;
        EXPECT_TRUE(parsed.dates.empty()) << row.why;
    }
}

TEST_F(Disposition, Dates) {
    using Lines = std::vector<std::string>;
    struct Row {
        const char* parameters;
        Lines dates;
        const char* why;
    };
    const std::string created = "30600 1075800030 60";
    const std::string modified = "30605 1075803631 0";
    const Row rows[] = {
        {"creation-date=\"Tue, 3 Feb 2004 10:20:30 +0100\"", {created}, "created"},
        {"modification-date=\"Tue, 3 Feb 2004 10:20:31 GMT\"", {modified}, "modified"},
        {"modification-date=\"Tue, 3 Feb 2004 10:20:31 GMT\"; creation-date=\"3 Feb 2004 10:20:30 +0100\"",
         {created, modified},
         "both, the creation first whatever their order"},
        {"Creation-Date=\"3 Feb 2004 10:20:30 +0100\"", {created}, "in any case"},
        {"creation-date=3 Feb 2004 10:20:30 +0100", {created}, "without quotes"},
        {"read-date=\"Tue, 3 Feb 2004 10:20:30 +0100\"", {}, "another date"},
        {"creation-date=\"\"", {}, "an empty one"},
        {"creation-date=yesterday", {}, "no date"},
        {"creation-date=\"32 Feb 2004 10:20:30 GMT\"; modification-date=\"3 Feb 2004 10:20:31 GMT\"",
         {modified},
         "an impossible one does not spoil the other"},
        {"creation-date*=us-ascii''3%20Feb%202004%2010%3A20%3A30%20GMT", {}, "only the plain form"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(parse("attachment; " + std::string(row.parameters)).dates, row.dates) << row.why;
}

TEST_F(Disposition, ADateWithoutAZoneHasTheLocalOne) {
    const char* const before = std::getenv("TZ");
    const std::string zone = before != nullptr ? before : "";
    ::setenv("TZ", "UTC-02:30", 1);  // two and a half hours east
    ::tzset();
    const auto dates = parse("attachment; creation-date=\"Tue, 3 Feb 2004 10:20:30\"").dates;
    const auto with_zone = parse("attachment; creation-date=\"Tue, 3 Feb 2004 10:20:30 +0000\"").dates;
    before != nullptr ? ::setenv("TZ", zone.c_str(), 1) : ::unsetenv("TZ");
    ::tzset();
    EXPECT_EQ(dates, std::vector<std::string>{"30600 1075794630 150"});
    EXPECT_EQ(with_zone, std::vector<std::string>{"30600 1075803630 0"});
}

}  // namespace
