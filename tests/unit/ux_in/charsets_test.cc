// Character-set settings, targets, whole-file and line conversion, and subjects that are not encoded.
#include "ux_in/charsets.h"

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "cvr/cvr.h"
#include "er/er.h"
#include "support/home.h"
#include "support/log_lines.h"

namespace {

using namespace std::string_literals;

class Charsets : public ::testing::Test {
protected:
    Charsets() { reset(); }
    ~Charsets() override { reset(); }

    static void reset() {
        cvr_TidyUp();
        ux_reset_charsets();
    }
    void start(std::string_view keys) {
        reset();
        home_.set_keys(keys);
        ux_InGetDefaultCharsets();
    }
    // "FromCharSet ToLatinCS rich-target GotInSteering"
    static std::string settings() {
        const ux_CharsetState& s = ux_charsets();
        return s.FromCharSet + ' ' + s.ToLatinCS + ' ' +
               (s.ToT61CSInfo.GotCharsetInfo ? s.ToT61CSInfo.CharsetExtl : "-") + ' ' +
               (s.GotInSteering ? "steered" : "not");
    }
    static std::string targets(std::string_view set) {
        const ux_TargetCharSets found = ux_InGetTargetCharSets(set);
        return found.ToLatinCS + ' ' + (found.ToT61CSInfo.GotCharsetInfo ? found.ToT61CSInfo.CharsetExtl : "-");
    }
    static im_Item item(std::string_view text) {
        im_Item made = im_CrNewDataItem();
        made.write(text);
        return made;
    }
    static std::string content(const im_Item& made) {
        std::string scratch;
        return std::string(made.head(std::string_view::npos, scratch));
    }
    // "type set content" after conversion, "trash" before it when it is to be thrown away.
    static std::string convert(std::string_view text, std::int32_t type, std::string_view set, bool ascii = false) {
        ux_ContentItem part{item(text), type, std::string(set), false};
        ux_InConvertContentItem(part, ascii);
        return (part.Trash ? "trash " : "") + std::to_string(part.FileType) + " [" + part.CharSet + "] " +
               content(part.item);
    }
    TestHome home_;
};

std::string target_row(std::string_view from, std::string_view to, int type = 0) {
    return "[[target]]\nfrom = \"" + std::string(from) + "\"\nto = \"" + std::string(to) +
           "\"\ntype = " + std::to_string(type) + '\n';
}

// ---- Start-up

TEST_F(Charsets, NothingConfigured) {
    start("");
    EXPECT_EQ(settings(), "IA5 ISO8859_1 - not");
}

TEST_F(Charsets, TheOutboundTargetOfLatin1) {
    struct Row {
        std::string steering;
        const char* expected;
        const char* why;
    };
    const Row rows[] = {
        {target_row("ISO8859_1", "UTF8"), "UTF8 ISO8859_1 - not", "named"},
        {target_row("ISO8859_1", "ISO8859_1"), "ISO8859_1 ISO8859_1 - not", "to itself"},
        {target_row("ISO8859_1", "IA5"), "IA5 ISO8859_1 - not", "ASCII"},
        {target_row("ISO8859_1", "X-Own"), "X-Own IA5 - not", "no mapping from it to Latin-1"},
        {target_row("KOI8_R", "UTF8"), "IA5 ISO8859_1 - not", "no row for Latin-1"},
        {target_row("ISO8859_1", "UTF8", 2133), "IA5 ISO8859_1 - not", "no row for plain text"},
        {target_row("ISO8859_1", "X-234567890123456"), "X-234567890123 IA5 - not", "14 characters"},
    };
    for (const Row& row : rows) {
        home_.write("sys/unixout.str", row.steering);
        start("");
        EXPECT_EQ(settings(), row.expected) << row.why;
    }
}

TEST_F(Charsets, TheInboundFileTakesTheOutboundOnesPlace) {
    home_.write("sys/unixout.str", target_row("ISO8859_1", "UTF8"));
    home_.write("sys/unixin.str", target_row("*", "KOI8_R"));
    start("");
    EXPECT_EQ(settings(), "UTF8 ISO8859_1 - not") << "the outbound file has said it";
    EXPECT_EQ(cvr_TargetCharSet("ISO8859_1", kPlainText).target, "KOI8_R") << "the inbound one is loaded now";
}

TEST_F(Charsets, AConfiguredSet) {
    struct Row {
        const char* keys;
        std::string steering;
        const char* expected;
        const char* why;
    };
    const Row rows[] = {
        {"UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\n", "", "ISO8859_1 IA5 - steered", "no row: ASCII only"},
        {"UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\n", target_row("*", "UTF8"), "ISO8859_1 ISO8859_1 UTF8 steered",
         "rich"},
        {"UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\n", target_row("*", "ISO8859_1"), "ISO8859_1 ISO8859_1 - steered",
         "Latin only"},
        {"UXI_UNIX_MAIL_CHARSET = \"KOI8_R\"\n", target_row("*", "KOI8_R"), "KOI8_R ISO8859_1 KOI8_R steered",
         "to itself"},
        {"UXI_UNIX_MAIL_CHARSET = \"koi8-r\"\n", target_row("*", "IA5"), "KOI8_R IA5 - steered", "by another name"},
        {"UXI_UNIX_MAIL_CHARSET = \"X-234567890123456\"\n", "", "X-234567890123 IA5 - steered", "14 characters"},
    };
    for (const Row& row : rows) {
        home_.write("sys/unixin.str", row.steering);
        home_.write("sys/unixout.str", target_row("*", "BIG5"));
        start(row.keys);
        EXPECT_EQ(settings(), row.expected) << row.why;
    }
}

TEST_F(Charsets, InternalNamesOfTheRichTarget) {
    home_.write("sys/unixin.str", target_row("*", "utf-8"));
    start("UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\n");
    const CharsetInfoStruct& rich = ux_charsets().ToT61CSInfo;
    EXPECT_EQ(rich.CharsetExtl, "UTF8");
    EXPECT_EQ(rich.CharsetInT61, "UTF8");
    EXPECT_EQ(rich.CharsetInO61, "UTF8");
    ASSERT_NE(rich.CSDesc, nullptr);
    EXPECT_EQ(rich.CSDesc->mime, "UTF-8");
}

TEST_F(Charsets, ASteeringFileThatCannotBeUsedEscapes) {
    for (const char* keys : {"", "UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\n"}) {
        for (const char* file : {"sys/unixin.str", "sys/unixout.str"}) {
            const bool is_read = *keys == '\0' || std::string_view(file) == "sys/unixin.str";
            home_.write(file, "[[target]]\n");
            const LogLines log(3);
            try {
                start(keys);
                EXPECT_FALSE(is_read) << file;
            } catch (const er_Escape& escape) {
                EXPECT_TRUE(is_read) << file;
                EXPECT_EQ(escape.group(), kSystemGroup);
                EXPECT_EQ(escape.reason(), EINVAL);
            }
            home_.write(file, "");
        }
    }
}

TEST_F(Charsets, TheSettingsAreLogged) {
    home_.write("sys/unixin.str", target_row("*", "UTF8"));
    const LogLines log(11);
    start("UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\n");
    const std::string line = log.first("11 102.1525");
    EXPECT_NE(line.find("ISO8859_1"), std::string::npos) << line;
    EXPECT_NE(line.find("UTF8"), std::string::npos) << line;
}

// ---- Targets

TEST_F(Charsets, TargetsOfASet) {
    home_.write("sys/unixin.str", target_row("KOI8_R", "UTF8") + target_row("UTF8", "UTF8") +
                                      target_row("BIG5", "ISO8859_1") + target_row("GBK", "IA5") +
                                      target_row("SJIS", "X-Own") + target_row("X-Own", "UTF8") +
                                      target_row("X-Same", "X-Same") + target_row("WIN1252", "ISO8859_15", 2133));
    start("UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\n");
    EXPECT_EQ(targets("KOI8_R"), "ISO8859_1 UTF8");
    EXPECT_EQ(targets("UTF8"), "ISO8859_1 UTF8") << "itself";
    EXPECT_EQ(targets("BIG5"), "ISO8859_1 -") << "Latin only";
    EXPECT_EQ(targets("GBK"), "IA5 -") << "ASCII only";
    EXPECT_EQ(targets("SJIS"), "IA5 -") << "a target that is not known";
    EXPECT_EQ(targets("X-Own"), "IA5 -") << "a target that cannot be reached";
    EXPECT_EQ(targets("X-Same"), "IA5 -") << "itself, but not known";
    EXPECT_EQ(targets("WIN1252"), "IA5 -") << "a row for another type";
    EXPECT_EQ(targets("EUCJP"), "IA5 -") << "no row";
}

// ---- Whole-file conversion

constexpr std::string_view kConversions = R"(
[[target]]
from = "KOI8_R"
to = "UTF8"
[[target]]
from = "ISO8859_1"
to = "UTF8"
[[convert]]
type = 2133
from = "*"
to_type = 1167
to = "UTF8"
converter = "upper"
[[convert]]
type = 1000
from = "*"
to_type = 1736
to = "utf-8"
converter = "upper"
[[convert]]
type = 1001
from = "*"
to_type = 0
to = "UTF8"
converter = "upper"
[[convert]]
type = 1002
from = "*"
to_type = 1736
to = "UTF8"
converter = "fail"
[[discard]]
type = 9999
from = "*"
[[convert]]
type = 1167
from = "HZGB2312"
to_type = 1167
to = "UTF8"
converter = "upper"
[converter.upper]
command = ["tr", "a-z", "A-Z"]
[converter.fail]
command = ["false"]
)";

TEST_F(Charsets, DetailsOfAConversion) {
    home_.write("sys/unixin.str", kConversions);
    start("UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\n");
    const auto details = [](std::int32_t type, std::string set) {
        const ux_FileConvDetails found = ux_InGetFileConvDetails(type, set, false);
        return std::to_string(found.applies) + (found.Trash ? " trash " : " ") + std::to_string(found.OutType) + " [" +
               found.OutCharSet + "] " + ux_charsets().Converter + " <" + set + '>';
    };
    EXPECT_EQ(details(2133, "KOI8_R"), "1 1167 [UTF8] upper <KOI8_R>");
    EXPECT_EQ(details(1736, "KOI8_R"), "0 1736 [KOI8_R]  <KOI8_R>") << "the converter's name is forgotten";
    EXPECT_EQ(details(1167, ""), "0 1167 [UTF8]  <ISO8859_1>") << "filled with the default set; its rich target";
    EXPECT_EQ(details(1736, ""), "0 1736 [ISO8859_1]  <ISO8859_1>") << "filled";
    EXPECT_EQ(details(2133, ""), "1 1167 [UTF8] upper <>") << "not filled for other types";
    EXPECT_EQ(details(1167, "KOI8_R"), "0 1167 [UTF8]  <KOI8_R>") << "another set's own target";
    EXPECT_EQ(details(1167, "BIG5"), "0 1167 [IA5]  <BIG5>") << "none";
    EXPECT_EQ(details(9999, "BIG5"), "0 trash 9999 [BIG5]  <BIG5>");
    EXPECT_EQ(details(0, ""), "0 0 []  <>");
}

TEST_F(Charsets, ConversionsAreForSystemsThatNameTheirSet) {
    home_.write("sys/unixin.str", kConversions);
    start("");
    std::string set = "UTF8";
    EXPECT_FALSE(ux_InGetFileConvDetails(2133, set, false).applies);
    EXPECT_FALSE(ux_InGetFileConvDetails(9999, set, false).Trash);
}

TEST_F(Charsets, AChangeOfSetIsLoggedWhenAskedFor) {
    home_.write("sys/unixin.str", kConversions);
    start("UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\n");
    const LogLines log(11);
    std::string set = "KOI8_R";
    ux_InGetFileConvDetails(1167, set, false);
    EXPECT_EQ(log.count("11 102.1526"), 0u);
    ux_InGetFileConvDetails(1167, set, true);
    EXPECT_EQ(log.count("11 102.1526"), 1u);
    EXPECT_NE(log.first("11 102.1526").find("KOI8_R"), std::string::npos);
    set = "X-Own";
    ux_InGetFileConvDetails(1736, set, true);
    EXPECT_EQ(log.count("11 102.1526"), 1u) << "only plain text changes";
}

// ---- Parts

const std::string kUtf8Text =
    "Gr\xc3\xbc\xc3\x9f"s
    "e \xe2\x82\xac M\xc3\xbcnchen, \xc3\x9c"s
    "bergabe, Stra\xc3\x9f"s
    "e";

TEST_F(Charsets, PartsAreDetected) {
    struct Row {
        const char* setting;
        std::int32_t type;
        const char* set;
        std::string expected;  // the set
        const char* why;
    };
    const Row rows[] = {
        {"", 1167, "", "UTF8", "absent: always"},
        {"", 1167, "KOI8_R", "UTF8", "absent: always"},
        {"", 1736, "KOI8_R", "UTF8", "other text too"},
        {"", 1736, "X-Own", "UTF8", "whatever it says"},
        {"UXI_MIME_CS_AUTODETECT = true\n", 1167, "KOI8_R", "UTF8", "true: always"},
        {"UXI_MIME_CS_AUTODETECT = false\n", 1167, "KOI8_R", "KOI8_R", "false: never"},
        {"UXI_MIME_CS_AUTODETECT = false\n", 1167, "", "", "false: never; no set is put in"},
        {"UXI_MIME_CS_AUTODETECT = 0\n", 1167, "", "", "0 is false"},
        {"UXI_MIME_CS_AUTODETECT = \"no\"\n", 1167, "", "", "so is no"},
        {"UXI_MIME_CS_AUTODETECT = \"some\"\n", 1167, "", "UTF8", "another: without a label"},
        {"UXI_MIME_CS_AUTODETECT = \"some\"\n", 1167, "IA5", "UTF8", "another: the default set"},
        {"UXI_MIME_CS_AUTODETECT = \"some\"\n", 1167, "ISO8859_1", "UTF8", "another: Latin-1"},
        {"UXI_MIME_CS_AUTODETECT = \"some\"\n", 1167, "KOI8_R", "KOI8_R", "another: a set that is meant"},
    };
    for (const Row& row : rows) {
        start(row.setting);
        EXPECT_EQ(convert(kUtf8Text, row.type, row.set),
                  std::to_string(row.type) + " [" + row.expected + "] " + kUtf8Text)
            << row.setting << row.set << ": " << row.why;
    }
    start("");
    EXPECT_EQ(convert(kUtf8Text, 0, "KOI8_R"), "0 [] " + kUtf8Text) << "no text";
}

TEST_F(Charsets, DetectionIsLogged) {
    start("");
    const LogLines log(11);
    convert(kUtf8Text, 1167, "KOI8_R");
    const std::string line = log.first("11 100.24070");
    EXPECT_NE(line.find("Valid body charset detected="), std::string::npos) << line;
    EXPECT_NE(line.find("KOI8_R"), std::string::npos) << line;
    EXPECT_EQ(log.count("11 102.1521"), 1u);
    EXPECT_EQ(log.count("11 102.1522"), 1u);
}

TEST_F(Charsets, TheScanIsLimited) {
    std::string plain;
    while (plain.size() < 10240) plain += "The quick brown fox jumps over the lazy dog. ";
    const std::string late = plain.substr(0, 10240) + kUtf8Text, early = plain.substr(0, 10200) + kUtf8Text;
    start("");
    EXPECT_TRUE(convert(late, 1167, "KOI8_R").starts_with("1167 [IA5]")) << "what is looked at is ASCII";
    EXPECT_TRUE(convert(early, 1167, "KOI8_R").starts_with("1167 [UTF8]"));
    home_.set_keys("UXI_AUTODETECT_SCAN_LIMIT = 0\n");
    EXPECT_TRUE(convert(late, 1167, "KOI8_R").starts_with("1167 [IA5]")) << "the limit is read once";
    start("UXI_AUTODETECT_SCAN_LIMIT = 0\n");
    EXPECT_TRUE(convert(late, 1167, "KOI8_R").starts_with("1167 [UTF8]")) << "no limit";
    start("UXI_AUTODETECT_SCAN_LIMIT = 64\n");
    EXPECT_TRUE(convert(early, 1167, "KOI8_R").starts_with("1167 [IA5]"));
}

TEST_F(Charsets, SevenBitPartsAreIa5) {
    home_.write("sys/unixin.str", kConversions);
    start("UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\nUXI_MIME_CS_AUTODETECT = false\n");
    EXPECT_EQ(convert("plain", 1167, "", true), "1167 [IA5] plain");
    EXPECT_EQ(convert("plain", 1167, "KOI8_R", true), "1167 [IA5] plain");
    EXPECT_EQ(convert("plain", 1736, "KOI8_R", true), "1167 [IA5] plain") << "becomes plain text";
    EXPECT_EQ(convert("plain", 1167, "HZGB2312", true), "1167 [UTF8] PLAIN") << "HZ is converted all the same";
    EXPECT_EQ(convert("plain", 2133, "KOI8_R", true), "1167 [IA5] plain") << "a conversion to text is not needed";
    EXPECT_EQ(convert("plain", 1000, "KOI8_R", true), "1167 [IA5] plain") << "to other text neither";
    EXPECT_EQ(convert("plain", 1001, "KOI8_R", true), "0 [] PLAIN") << "but to anything else it is";
    EXPECT_EQ(convert("plain", 7, "KOI8_R", true), "7 [] plain") << "no text";
}

TEST_F(Charsets, PartsAreConvertedAsAWhole) {
    home_.write("sys/unixin.str", kConversions);
    start("UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\nUXI_MIME_CS_AUTODETECT = false\n");
    EXPECT_EQ(convert("text", 2133, "KOI8_R"), "1167 [UTF8] TEXT");
    EXPECT_EQ(convert("text", 1000, "KOI8_R"), "1736 [UTF8] TEXT") << "the first internal name";
    EXPECT_EQ(convert("text", 1002, "KOI8_R"), "1167 [UTF8] text") << "a converter that fails leaves plain text";
    EXPECT_EQ(convert("text", 9999, "KOI8_R"), "trash 9999 [] text");
    EXPECT_EQ(convert("text", 1167, "BIG5"), "1167 [BIG5] text") << "without a conversion the set stays";
    EXPECT_EQ(convert("text", 1167, ""), "1167 [] text") << "the default set is not put in";
    EXPECT_TRUE(home_.files("data").empty()) << "replaced and dropped items are gone";
}

TEST_F(Charsets, AReplacedItemIsANewOne) {
    home_.write("sys/unixin.str", kConversions);
    start("UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\n");
    ux_ContentItem part{item("text"), 2133, "KOI8_R", false};
    const ITEM_REF before = part.item.ref();
    ux_InConvertContentItem(part, false);
    EXPECT_FALSE(part.item.ref() == before);
    EXPECT_EQ(home_.files("data").size(), 0u) << "the old one is unlinked, the new one small";
}

// ---- Lines

TEST_F(Charsets, LinesAreConverted) {
    struct Row {
        std::string line;
        const char* from;
        const char* to;
        std::string expected;  // converted, or the line as it stands afterwards after a "!"
        const char* why;
    };
    const Row rows[] = {
        {"Gr\xfc\xdf"s
         "e",
         "ISO8859_1", "UTF8",
         "Gr\xc3\xbc\xc3\x9f"s
         "e",
         "converted"},
        {"plain", "ISO8859_1", "UTF8", "plain", "converted, and the same"},
        {"1 \xe2\x82\xac", "UTF8", "ISO8859_1", "1 ?", "converted with loss"},
        {"Gr\xfc", "ISO8859_1", "IA5", "Gr?", "to ASCII too"},
        {"Gr\xfc", "IA5", "UTF8", "!Gr\xfc", "from ASCII nothing is done"},
        {"Gr\xfc", "IA5", "IA5", "!Gr\xfc", "nor here: no stars"},
        {"Gr\xfc", "UTF8", "UTF8", "!Gr\xfc", "one set"},
        {"Gr\xfc", "UTF8", "ISO8859_1", "!Gr\xfc", "not text of its set: bytes stay"},
        {"Gr\xfc\xdf.", "UTF8", "IA5", "!Gr**.", "not text of its set, to ASCII: stars"},
        {"Gr\xfc", "X-Own", "IA5", "!Gr*", "no conversion, to ASCII: stars"},
        {"Gr\xfc", "X-Own", "UTF8", "!Gr\xfc", "no conversion: bytes stay"},
        {"", "X-Own", "IA5", "!", "nothing"},
    };
    for (const Row& row : rows) {
        std::string line = row.line, out;
        const auto converted = ux_InTextCharConverter(line, row.from, row.to, out);
        EXPECT_EQ(converted ? std::string(*converted) : '!' + line, row.expected) << row.why;
    }
}

// ---- Subjects

TEST_F(Charsets, SubjectsThatAreNotEncoded) {
    struct Row {
        const char* keys;
        std::string steering, subject, expected;
        const char* why;
    };
    const char* const kLatin = "UXI_UNIX_MAIL_CHARSET = \"ISO8859_1\"\n";
    const Row rows[] = {
        {"", "", "", "", "none"},
        {"", "", "Plain", "Plain", "ASCII"},
        {"", "", "Gr\xfc", "=?ISO-8859-1?Q?Gr=FC?=", "unlabelled: taken for Latin-1"},
        {kLatin, target_row("*", "ISO8859_1"), "Gr\xfc", "=?ISO-8859-1?Q?Gr=FC?=", "Latin-1"},
        {kLatin, target_row("*", "UTF8"), "Gr\xfc", "=?UTF-8?B?R3LDvA==?=", "the rich target, method b"},
        {kLatin, "", "Gr\xfc", "Gr?", "ASCII only: converted with loss"},
        {"UXI_UNIX_MAIL_CHARSET = \"UTF8\"\n", target_row("*", "UTF8"), "Gr\xc3\xbc"s,
         "=?ISO-8859-1?Q?Gr=FC?=", "rich, but its own set: the Latin target"},
        {"UXI_UNIX_MAIL_CHARSET = \"UTF8\"\n", target_row("*", "KOI8_R"), "Gr\xfc",
         "=?ISO-8859-1?Q?Gr=FC?=", "no UTF-8 at all: its bytes in the Latin target"},
        {"UXI_UNIX_MAIL_CHARSET = \"X-Own\"\n", "", "Gr\xfc\xdf", "Gr**", "no conversion: stars, which are ASCII"},
        {"UXI_UNIX_MAIL_CHARSET = \"GB2312\"\n", "", "~{VP~}", "=?HZ-GB-2312?B?fntWUH59?=", "7-bit Chinese"},
        {"UXI_UNIX_MAIL_CHARSET = \"ISO2022CN\"\n", "", "Hello", "=?HZ-GB-2312?B?SGVsbG8=?=", "as it stands"},
        {"UXI_UNIX_MAIL_CHARSET = \"HZGB2312\"\n", "", "Hello", "=?HZ-GB-2312?B?SGVsbG8=?=", "as it stands"},
        {"UXI_UNIX_MAIL_CHARSET = \"GBK\"\n", "", "Hello", "Hello", "not for other Chinese sets"},
    };
    for (const Row& row : rows) {
        home_.write("sys/unixin.str", row.steering);
        start(row.keys);
        EXPECT_EQ(ux_InBuildSubject(row.subject), row.expected) << row.keys << row.why;
    }
}

// ---- The detection setting

TEST_F(Charsets, TheDetectionSetting) {
    struct Row {
        const char* keys;
        char expected;
    };
    const Row rows[] = {
        {"", 'R'},
        {"UXI_MIME_CS_AUTODETECT = true\n", 'R'},
        {"UXI_MIME_CS_AUTODETECT = \"yes\"\n", 'R'},
        {"UXI_MIME_CS_AUTODETECT = 1\n", 'R'},
        {"UXI_MIME_CS_AUTODETECT = false\n", 'N'},
        {"UXI_MIME_CS_AUTODETECT = \"False\"\n", 'N'},
        {"UXI_MIME_CS_AUTODETECT = \"n\"\n", 'N'},
        {"UXI_MIME_CS_AUTODETECT = 0\n", 'N'},
        {"UXI_MIME_CS_AUTODETECT = \"unlabelled\"\n", 'Y'},
        {"UXI_MIME_CS_AUTODETECT = \"default\"\n", 'Y'},
    };
    for (const Row& row : rows) {
        start(row.keys);
        EXPECT_EQ(ux_charsets().DoCSAutoDetect, 'U') << "not read before it is needed";
        EXPECT_EQ(ux_InAutodetectSetting(), row.expected) << row.keys;
        home_.set_keys("");
        EXPECT_EQ(ux_InAutodetectSetting(), row.expected) << "read once";
    }
}

}  // namespace
