// The three forms of one file, above all of files that lie.
#include "morvane/show.h"

#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "morvane/failure.h"
#include "nm/nm.h"
#include "tf/record.h"

namespace morvane {
namespace {

constexpr Screen kScreen{true, false};

struct Shown {
    std::string text, damage;
};

Shown shown(Form form, const std::string& bytes, bool all = false) {
    nm_reset();
    ByteFile file = ByteFile::over(bytes, "/somewhere/F");
    Shown result;
    Printer out(result.text);
    ShowContext context{out, kScreen, all, {}};
    try {
        switch (form) {
            case Form::tree: show_tree(context, file); break;
            case Form::json: show_json(context, file); break;
            case Form::hex: show_hex(context, file); break;
        }
    } catch (const RecordFailure& failure) {
        context.note_damage(failure.what());
    }
    out.flush();
    result.damage = context.damage;
    return result;
}

std::string subject(std::string_view text) {
    tf_Record record;
    tf_MakeSubjectRec(record, TFREC_subject, text);
    return std::string(record.bytes());
}

std::string list_entry(std::int32_t type, const std::string& name) {
    tf_Record record(type);
    record.put16(14, 40);
    record.put_string(24, name);
    return std::string(record.bytes());
}

std::string bare(std::int32_t type) { return std::string(tf_Record(type).bytes()); }

TEST(ShowTree, DrawsRecords) {
    const std::string bytes =
        subject("=?utf-8?q?Gr=C3=BC=C3=9Fe?=") + list_entry(TFREC_list_to, "/CN=Jane/DD.RFC-822=j(a)x.org");
    EXPECT_EQ(shown(Form::tree, bytes).text,
              "F  106 bytes\n"
              "├─ subject         Grüße\n"
              "└─ To              Jane <j@x.org>  /CN=Jane/DD.RFC-822=j(a)x.org\n");
}

TEST(ShowTree, NothingFromMailDrivesTheTerminal) {
    const std::string bytes = subject(
                                  "\x1B]0;title\x07\n\xC2\x9B"
                                  "2J") +
                              list_entry(TFREC_list_cc, "/CN=\x1B[2J/IA=a@b\r");
    for (const Form form : {Form::tree, Form::json, Form::hex}) {
        const std::string text = shown(form, bytes).text;
        for (const char c : text) ASSERT_TRUE(c == '\n' || (static_cast<unsigned char>(c) >= ' ' && c != 0x7F));
        EXPECT_EQ(text.find("\xC2\x9B"), std::string::npos);
    }
}

TEST(ShowTree, EmptySubjectAndUnknownRecords) {
    EXPECT_EQ(shown(Form::tree, subject("") + bare(4711)).text,
              "F  41 bytes\n"
              "├─ subject         none\n"
              "└─ record 4711     16 bytes\n");
}

TEST(ShowTree, DamageIsTheLastThing) {
    const std::string whole = subject("a");
    const Shown result = shown(Form::tree, whole + whole.substr(0, 20));
    EXPECT_EQ(result.text,
              "F  46 bytes\n"
              "├─ subject         a\n"
              "└─ damage          /somewhere/F: offset 26: a record of 26 bytes where 20 are left\n");
    EXPECT_EQ(result.damage, "/somewhere/F: offset 26: a record of 26 bytes where 20 are left");
}

TEST(ShowTree, UnbalancedPackagesAreDamage) {
    const Shown result = shown(Form::tree, bare(TFREC_end_package) + subject("a"));
    EXPECT_NE(result.text.find("damage          /somewhere/F: offset 0: the end of a package"), std::string::npos)
        << result.text;
    EXPECT_NE(result.damage, "");
}

TEST(ShowTree, ShortRecordsAreDamage) {
    const Shown result = shown(Form::tree, bare(TFREC_header));
    EXPECT_NE(result.text.find("the record ends before its field reserved16"), std::string::npos) << result.text;
    EXPECT_NE(result.damage, "");
}

std::size_t lines_with(const std::string& text, std::string_view part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

TEST(ShowTree, LongRunsAreCounted) {
    for (const int names : {25, 26, 27, 1000}) {
        std::string bytes = list_entry(TFREC_list_from, "/CN=boss");
        for (int i = 0; i < names; ++i) bytes += list_entry(TFREC_list_to, "/CN=n" + std::to_string(i));
        bytes += list_entry(TFREC_list_cc, "/CN=last");
        const std::string text = shown(Form::tree, bytes).text;
        EXPECT_EQ(lines_with(text, "─ To "), static_cast<std::size_t>(names <= 26 ? names : 25)) << names;
        EXPECT_EQ(lines_with(text, " more, shown with --all"), names <= 26 ? 0U : 1U) << names;
        EXPECT_EQ(lines_with(text, "└─ Cc"), 1U) << names;
        EXPECT_EQ(lines_with(shown(Form::tree, bytes, true).text, "─ To "), static_cast<std::size_t>(names)) << names;
    }
}

TEST(ShowTree, WrappedRecordsAreMarked) {
    tf_Record record;
    tf_MakeSubjectRec(record, TFREC_subject, "inner");
    tf_ChangeToWrapRec(record);
    EXPECT_EQ(shown(Form::tree, std::string(record.bytes())).text, "F  46 bytes\n└─ subject         ⊂ inner\n");
}

TEST(ShowJson, IsOneDocumentWithEveryField) {
    tf_Record header(TFREC_header);
    header.put16(16, 3);
    header.put32(24, 0x0400 | 2);
    header.put32(42, 2);
    const std::string bytes = std::string(header.bytes()) + list_entry(TFREC_list_to, "/CN=\xFF") + bare(4711);
    const auto json = nlohmann::json::parse(shown(Form::json, bytes).text);
    EXPECT_EQ(json["size"], bytes.size());
    EXPECT_EQ(json["records"].size(), 3U);
    EXPECT_EQ(json["records"][0]["name"], "header");
    EXPECT_EQ(json["records"][0]["fields"]["flags"], 1026);
    EXPECT_EQ(json["records"][0]["fields"]["flagsText"][0], "urgent");
    EXPECT_EQ(json["records"][1]["position"], 46);
    EXPECT_EQ(json["records"][1]["word"], 40);
    EXPECT_EQ(json["records"][1]["fields"]["name"], "/CN=\xC3\xBF")
        << "a byte that is no UTF-8 is its Latin-1 character";
    EXPECT_EQ(json["records"][1]["fields"]["nameBytes"], "2f434e3dff");
    EXPECT_EQ(json["records"][2]["type"], 4711);
    EXPECT_EQ(json["records"][2]["name"], "unknown");
}

TEST(ShowJson, StaysADocumentWhenTheFileIsDamaged) {
    const Shown result = shown(Form::json, subject("a") + "rest");
    EXPECT_EQ(nlohmann::json::parse(result.text)["records"].size(), 1U);
    EXPECT_NE(result.damage.find("offset 26"), std::string::npos);
    EXPECT_EQ(nlohmann::json::parse(shown(Form::json, "").text)["records"].size(), 0U);
}

// Every byte of the file is in the dump, in order.
TEST(ShowHex, HoldsEveryByte) {
    std::string bytes =
        subject("a long subject that does not fit one row") + list_entry(TFREC_list_to, "/CN=x") + bare(4711);
    tf_Record record(TFREC_header);
    record.put_string(54, "text/plain");
    bytes += record.bytes();
    tf_Record wrapped;
    tf_MakeSubjectRec(wrapped, TFREC_subject, "in");
    tf_ChangeToWrapRec(wrapped);
    bytes += wrapped.bytes();
    bytes += bare(TFREC_mapi_properties);  // ends before its fields
    std::string seen;
    const std::string text = shown(Form::hex, bytes).text;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        if (!line.starts_with("  +")) continue;
        const std::string hex = line.substr(line.find_first_of(' ', 3) + 3, 48);
        for (std::size_t i = 0; i + 2 < hex.size() && hex[i] != ' '; i += 3)
            seen += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    EXPECT_EQ(seen, bytes);
}

TEST(ShowHex, LeavesOutTheMiddleOfLongThings) {
    tf_Record record(TFREC_item_class);
    record.put_string(16, std::string(5000, 'x'));
    const std::string bytes(record.bytes());
    EXPECT_NE(shown(Form::hex, bytes).text.find("4,745 bytes more"), std::string::npos);
    EXPECT_EQ(shown(Form::hex, bytes, true).text.find("bytes more"), std::string::npos);
}

// Ten thousand packages in each other are ten thousand short lines.
TEST(ShowTree, DepthCostsNothing) {
    std::string bytes;
    for (int i = 0; i < 10'000; ++i) {
        tf_Record record;
        TFREC_start_package package;
        tf_initTFREC_start_package(package, 3, -100);
        tf_ST_PKG_from_Struc(record, package);
        bytes += record.bytes();
    }
    for (int i = 0; i < 10'000; ++i) bytes += bare(TFREC_end_package);
    const Shown result = shown(Form::tree, bytes);
    EXPECT_EQ(result.damage, "");
    EXPECT_LT(result.text.size(), 10'000U * 130);
    EXPECT_EQ(nlohmann::json::parse(shown(Form::json, bytes).text)["records"].size(), 20'000U);
}

}  // namespace
}  // namespace morvane
