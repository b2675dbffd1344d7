// Content types: codes, sets, the charset parameter, and the file that maps them.
#include "mim/content_type.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "ccs/ccs.h"
#include "er/er.h"
#include "support/home.h"
#include "support/log_lines.h"

namespace {

constexpr const char* kMap = "sys/mimetypes.toml";

// The map that every home is laid down with. The name of this file may be relative to the build folder, where the
// program is in tests/.
std::string shipped_map() {
    const auto build = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
    const auto here = (build / std::filesystem::path(__FILE__)).parent_path();
    return TestHome::read_path((here / "../../../share/mimetypes.toml").string());
}

class ContentType : public testing::Test {
protected:
    ContentType() { mim_reset_types(); }
    ~ContentType() override { mim_reset_types(); }

    void use(std::string_view map) {
        home_.write(kMap, map);
        mim_reset_types();
    }
    // "code set"
    static std::string mapped(std::string_view type, std::string_view file_name = {}) {
        const mim_QNType result = mim_MimeToQNType(type, file_name);
        return std::to_string(result.lQNFileCode) + ' ' + result.QNCharSet;
    }
    // What reading the map raises and logs: "22 3 102.0 LINE: what"; empty when it is read.
    std::string complaint(std::string_view map) {
        use(map);
        const LogLines log(5);
        std::string raised;
        try {
            mim_MimeToQNType("text/plain", "");
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), kSystemGroup);
            raised = std::to_string(escape.reason()) + ' ';
        }
        std::string line = log.all().empty() ? "" : log.all().back();
        const std::string file = home_.file(kMap) + ':';
        if (const std::size_t at = line.find(file); at != std::string::npos) line.erase(at, file.size());
        return raised + line;
    }

    TestHome home_;
};

struct MapRow {
    std::string_view type;
    std::string_view file_name;
    const char* mapped;
    const char* why;
};

// What holds with the shipped map and without any.
constexpr MapRow kAlwaysRows[] = {
    {"text/plain", "", "1167 ", "no set"},
    {"text/plain; charset=us-ascii", "", "1167 IA5", "ASCII"},
    {"text/plain; charset=ISO-8859-1", "", "1167 ISO8859_1", "Latin-1"},
    {"text/plain; charset=latin1", "", "1167 ISO8859_1", "by a customary name"},
    {"text/plain; charset=ISO-8859-15", "", "1736 ISO8859_15", "any other set"},
    {"text/plain; charset=utf-8", "", "1736 UTF8", "UTF-8"},
    {"text/plain; charset=\"UTF-8\"; format=flowed", "", "1736 UTF8", "quoted"},
    {"text/plain; charset='utf-8'", "", "1736 UTF8", "in apostrophes"},
    {"text/plain; charset=utf-8 (Unicode)", "", "1736 UTF8", "with a comment"},
    {"text/plain; charset=", "", "1167 ", "an empty set is none"},
    {"text/plain; charset=\"\"", "", "1167 ", "in quotes too"},
    {"text/plain; charset=x-klingon", "", "1736 x-klingon", "a set that is not known keeps its label"},
    {"text/plain; charset=x-klingon-of-the-north", "", "1736 x-klingon-of-t", "cut to 14 characters"},
    {"text/plain; charset*=us-ascii'en'utf-8", "", "1736 UTF8", "RFC 2231"},
    {"text/plain; charset*=x''y; charset=koi8-r", "", "1736 KOI8_R", "the plain one goes before it"},
    {"text/plain; charset=utf-8; charset=koi8-r", "", "1736 UTF8", "the first of two"},
    {"TEXT/Plain; CHARSET=UTF-8", "", "1736 UTF8", "any case"},
    {"text / plain; charset=utf-8", "", "1736 UTF8", "blanks around the slash"},
    {"text/plain (hello); charset=utf-8", "", "1736 UTF8", "a comment"},
    {"text/plain charset=utf-8", "", "1736 UTF8", "a missing semicolon"},
    {"text/plain foo", "", "1167 ", "the subtype ends at a blank"},
    {"text/plain; name=a.html", "a.html", "1167 ", "an extension does not overrule a type"},
    {"text/x-unheard-of", "", "1167 ", "text without a row is plain text"},
    {"text/x-unheard-of; charset=utf-8", "", "1736 UTF8", "in any set"},
    {"text/", "", "1167 ", "no subtype"},
    {"text", "", "1167 ", "no slash: plain text"},
    {"", "", "1167 ", "nothing: plain text"},
    {"; charset=utf-8", "", "1736 UTF8", "parameters alone"},
    {"text/html", "", "2133 ", "HTML"},
    {"text/html; charset=utf-8", "", "2133 UTF8", "HTML in any set"},
    {"application/ms-tnef", "", "1734 ", "TNEF"},
    {"application/vnd.ms-tnef; name=winmail.dat", "winmail.dat", "1734 ", "TNEF"},
    {"text/calendar; method=REQUEST; charset=utf-8", "", "2191 UTF8", "a calendar"},
    {"application/rtf", "", "2130 ", "rich text"},
    {"text/rtf; charset=utf-8", "", "2130 UTF8", "rich text"},
    {"application/ploxen-prop", "", "3100 ", "properties"},
    {"application/X-Ploxen-DistList", "", "1166 ", "a list, in any case"},
    {"application/x-unheard-of", "", "0 ", "anything else is binary"},
    {"application/x-unheard-of; charset=utf-8", "a.html", "0 UTF8", "whatever it is called"},
    {"image/png", "a.txt", "0 ", "a picture"},
    {"application/octet-stream", "", "0 ", "octets without a name"},
    {"application/octet-stream", "README", "0 ", "without an extension"},
    {"application/octet-stream", "a.", "0 ", "with an empty one"},
    {"application/octet-stream", "a.unheard", "0 ", "with one that has no row"},
    {"textual/plain", "", "0 ", "begins like text, but is not"},
};

constexpr MapRow kExtensionRows[] = {
    {"application/octet-stream", "a.txt", "1167 ", "octets by their name"},
    {"application/octet-stream; charset=utf-8", "a.txt", "1736 UTF8", "in the set they name"},
    {"Application/Octet-Stream; name=x.bin", "A.HTM", "2133 ", "any case; the name that is given counts"},
    {"application/octet-stream", "a.ics", "2191 ", "a calendar"},
    {"application/octet-stream", "a.rtf", "2130 ", "rich text"},
    {"application/octet-stream", "a.tnef", "1734 ", "TNEF"},
    {"application/octet-stream", "a.pdf", "0 ", "a row that says binary"},
    {"application/octet-stream", "a.html.pdf", "0 ", "the last extension counts"},
    {"application/octet-stream", "a.html/b", "0 ", "a dot in a folder's name is none"},
    {"application/octet-stream", "a.html\\b", "0 ", "nor in another system's"},
    {"application/octet-stream", ".html", "2133 ", "an extension alone"},
    {"application/octet-stream", " a.html ", "2133 ", "blanks around"},
    {"application/octet-stream", "=?utf-8?Q?caf=C3=A9=2Ehtml?=", "2133 ", "an encoded name"},
    {"application/octet-stream", "=?utf-8?B?w6k=?=.html", "2133 ", "an extension behind an encoded word"},
    {"application/octet-stream", "caf\xE9.html", "2133 ", "8-bit bytes of any set"},
};

TEST_F(ContentType, WithTheShippedMap) {
    use(shipped_map());
    const LogLines log;
    for (const MapRow& row : kAlwaysRows) EXPECT_EQ(mapped(row.type, row.file_name), row.mapped) << row.why;
    for (const MapRow& row : kExtensionRows) EXPECT_EQ(mapped(row.type, row.file_name), row.mapped) << row.why;
    EXPECT_EQ(mapped("text/markdown; charset=utf-8"), "1736 UTF8") << "a row that says text";
    EXPECT_EQ(mapped("application/xhtml+xml"), "0 ");
    EXPECT_TRUE(log.all().empty()) << log.all().front();
}

TEST_F(ContentType, WithoutAMap) {
    for (const MapRow& row : kAlwaysRows) EXPECT_EQ(mapped(row.type, row.file_name), row.mapped) << row.why;
    EXPECT_EQ(mapped("application/octet-stream", "a.html"), "0 ") << "no extension has a row";
    EXPECT_FALSE(mim_FileExtToQNType("a.txt"));
}

TEST_F(ContentType, CodeOfAnExtension) {
    use(shipped_map());
    EXPECT_EQ(mim_FileExtToQNType("a.html"), kHtmlCode);
    EXPECT_EQ(mim_FileExtToQNType("A.TXT"), kPlainTextCode);
    EXPECT_EQ(mim_FileExtToQNType("a.zip"), kBinaryCode);
    EXPECT_FALSE(mim_FileExtToQNType("a.unheard"));
    EXPECT_FALSE(mim_FileExtToQNType("html"));
    EXPECT_FALSE(mim_FileExtToQNType(""));
    EXPECT_FALSE(mim_FileExtToQNType("."));
}

TEST_F(ContentType, AMapOfOnesOwn) {
    use("[[type]]\nmime = 'Text/Plain'\ncode = 1167\nextensions = ['TXT']\n"
        "[[type]]\nmime = 'application/x-note'\ncode = 4711\nextensions = ['note', 'not\xC3\xA9']\n");
    EXPECT_EQ(mapped("application/X-NOTE"), "4711 ");
    EXPECT_EQ(mapped("application/octet-stream", "a.Note"), "4711 ");
    EXPECT_EQ(mapped("application/octet-stream", "a.not\xC3\xA9"), "4711 ") << "beyond ASCII, letter for letter";
    EXPECT_EQ(mapped("application/octet-stream", "a.txt"), "1167 ");
    EXPECT_EQ(mapped("text/html"), "1167 ") << "a row that was taken out is out";
    use("");
    EXPECT_EQ(mapped("text/html"), "1167 ") << "an empty map has no rows";
    EXPECT_EQ(mapped("application/ms-tnef"), "0 ");
    use("type = [ { mime = 'text/x-big', code = 2147483647 } ]");
    EXPECT_EQ(mapped("text/x-big; charset=utf-8"), "2147483647 UTF8") << "the largest code; extensions may be missing";
}

TEST_F(ContentType, TheMapIsReadOnceAndWhenNeeded) {
    use("type = [ { mime = 'text/html', code = 1 } ]");
    EXPECT_EQ(mim_InsertNewCSName("text/plain", "UTF8"), "text/plain; charset=UTF-8");
    home_.write(kMap, "type = [ { mime = 'text/html', code = 2 } ]");
    EXPECT_EQ(mapped("text/html"), "2 ") << "nothing had needed it before";
    home_.write(kMap, "nonsense");
    EXPECT_EQ(mapped("text/html"), "2 ");
    home_.write("other.toml", "type = [ { mime = 'text/html', code = 3 } ]");
    mim_reset_types(home_.file("other.toml"));
    EXPECT_EQ(mapped("text/html"), "3 ");
}

struct BadRow {
    const char* map;
    const char* complaint;
    const char* why;
};
constexpr BadRow kBadRows[] = {
    {"type = 3", "22 3 102.0 1: key type: a list of tables is wanted", "no list"},
    {"\ntype = [ 3 ]", "22 3 102.0 2: key type: a list of tables is wanted", "a list of something else"},
    {"[type]\nmime = 'a/b'\ncode = 1", "22 3 102.0 1: key type: a list of tables is wanted", "one table"},
    {"[[type]]\ncode = 1", "22 3 102.0 1: key mime is missing", "no type"},
    {"[[type]]\nmime = 1\ncode = 1", "22 3 102.0 2: key mime: a type with \"/\" is wanted", "a number"},
    {"[[type]]\nmime = 'html'\ncode = 1", "22 3 102.0 2: key mime: a type with \"/\" is wanted", "no slash"},
    {"[[type]]\nmime = 'a/b'", "22 3 102.0 1: key code is missing", "no code"},
    {"[[type]]\nmime = 'a/b'\ncode = '1'", "22 3 102.0 3: key code: a number from 0 to 2147483647 is wanted", "a text"},
    {"[[type]]\nmime = 'a/b'\ncode = -1", "22 3 102.0 3: key code: a number from 0 to 2147483647 is wanted",
     "too small"},
    {"[[type]]\nmime = 'a/b'\ncode = 2147483648", "22 3 102.0 3: key code: a number from 0 to 2147483647 is wanted",
     "too large"},
    {"[[type]]\nmime = 'a/b'\ncode = 1.5", "22 3 102.0 3: key code: a number from 0 to 2147483647 is wanted",
     "a fraction"},
    {"[[type]]\nmime = 'a/b'\ncode = 1\nextensions = 'x'", "22 3 102.0 4: key extensions: a list of texts is wanted",
     "one text"},
    {"[[type]]\nmime = 'a/b'\ncode = 1\nextensions = ['x',\n3]",
     "22 3 102.0 5: key extensions: a list of texts is wanted", "a number among them"},
    {"# caf\xE9\ntype = []", "22 3 102.0 1: not UTF-8", "another set"},
};

TEST_F(ContentType, ABadMapIsRefused) {
    for (const BadRow& row : kBadRows) EXPECT_EQ(complaint(row.map), row.complaint) << row.why;
    EXPECT_TRUE(complaint("type = [\n{ mime = 'a/b' code = 1 }\n]").starts_with("22 3 102.0 2: ")) << "no TOML";
    home_.write(kMap, "type = [ { mime = 'text/html', code = 2133 } ]");
    EXPECT_EQ(mapped("text/html"), "2133 ") << "nothing is remembered of it";
}

constexpr BadRow kWarningRows[] = {
    {"types = []", "5 102.0 1: key types has no meaning here", "a key that nobody knows"},
    {"[[type]]\nmime = 'a/b'\ncode = 1\nextension = 'x'", "5 102.0 4: key extension of a type has no meaning here",
     "one of a row"},
    {"[[type]]\nmime = 'a/b'\ncode = 1\n[[type]]\nmime = 'A/B'\ncode = 2", "5 102.0 4: type a/b has a row already",
     "a type twice"},
    {"[[type]]\nmime = 'a/b'\ncode = 1\nextensions = ['x']\n[[type]]\nmime = 'a/c'\ncode = 2\nextensions = ['X']",
     "5 102.0 8: extension x has a row already", "an extension twice"},
};

TEST_F(ContentType, AnOddMapIsWarnedOf) {
    for (const BadRow& row : kWarningRows) EXPECT_EQ(complaint(row.map), row.complaint) << row.why;
    EXPECT_EQ(mapped("a/b"), "1 ") << "the first holds";
    EXPECT_EQ(mapped("application/octet-stream", "f.x"), "1 ");
    EXPECT_EQ(mapped("a/c"), "2 ");
}

// A tab is good TOML, but not of the plain form: with one at the end the parser reads the map.
const char* const kByParser = "\n\t";

TEST_F(ContentType, TheShippedMapIsReadAsTheParserReadsIt) {
    const std::string map = shipped_map();
    std::vector<std::string> types, extensions;
    for (std::size_t at = 0; (at = map.find('"', at)) != std::string::npos; ++at) {
        const std::size_t end = map.find('"', at + 1);
        const std::string text = map.substr(at + 1, end - at - 1);
        (text.find('/') == std::string::npos ? extensions : types).push_back(text);
        at = end;
    }
    EXPECT_GT(types.size(), 100U);
    const auto codes = [&] {
        std::string all;
        for (const std::string& type : types) all += mapped(type) + '\n';
        for (const std::string& extension : extensions)
            all += mapped("application/octet-stream", "f." + extension) + '\n';
        return all;
    };
    use(map);
    const std::string plainly = codes();
    use(map + kByParser);
    EXPECT_EQ(plainly, codes());
}

constexpr const char* kPlainMaps[] = {
    "type = [\n    { mime = \"a/b\", code = 10, extensions = [\"x\", \"Y\"] },  # c\n\n"
    "{mime=\"a/c\",code=0,extensions=[]},{ mime = \"A/b\", code = 7, extensions = [\"x\"] }\n]\n",
    "# c\n\n  type=[]#d",
    "type = [ { mime = \"a/b\", code = 1, extensions = [\"\"] } # c\n , ]",
};

// One character more, less or other: the plain reading takes nothing that the parser refuses or reads in another way.
TEST_F(ContentType, WhatIsNearlyPlainIsReadAsTheParserReadsIt) {
    const auto outcome = [this](const std::string& map) {
        const std::string said = complaint(map);
        if (said.starts_with("22 ")) return std::string("refused");
        return said + '|' + mapped("a/b") + mapped("a/c") + mapped("application/octet-stream", "f.x") +
               mapped("application/octet-stream", "f.y") + mapped("application/octet-stream", "f.");
    };
    for (const std::string map : kPlainMaps)
        for (std::size_t at = 0; at <= map.size(); ++at)
            for (const char c : std::string_view("\0\"',[]{}#\n =\\x0-1\xC3", 18)) {
                const std::string more = std::string(map).insert(at, 1, c);
                ASSERT_EQ(outcome(more), outcome(more + kByParser)) << more;
                const std::string other = std::string(map).replace(at, at < map.size() ? 1 : 0, c == '\0' ? 0 : 1, c);
                ASSERT_EQ(outcome(other), outcome(other + kByParser)) << other;
            }
}

struct InsertRow {
    const char* type;
    const char* set;
    const char* result;
    const char* why;
};
constexpr InsertRow kInsertRows[] = {
    {"text/plain", "UTF8", "text/plain; charset=UTF-8", "at the end"},
    {"text/plain; format=flowed", "ISO8859_15", "text/plain; format=flowed; charset=ISO-8859-15", "behind others"},
    {"text/plain; charset=us-ascii", "UTF8", "text/plain; charset=UTF-8", "over the value"},
    {"text/plain; charset=us-ascii; format=flowed", "IA5", "text/plain; charset=US-ASCII; format=flowed",
     "in the middle"},
    {"text/plain; charset=\"us-ascii\" (c); a=b", "KSC5601", "text/plain; charset=EUC-KR (c); a=b", "quotes go"},
    {"text/plain;Charset = us-ascii ;a=b", "UTF8", "text/plain;Charset = UTF-8 ;a=b", "the rest stays as it is"},
    {"text/plain; charset=; a=b", "UTF8", "text/plain; charset=UTF-8; a=b", "over an empty value"},
    {"text/plain; charset=", "UTF8", "text/plain; charset=UTF-8", "over an empty value at the end"},
    {"text/plain; charset; a=b", "UTF8", "text/plain; charset; a=b; charset=UTF-8", "a name alone is no parameter"},
    {"text/plain; xcharset=a", "UTF8", "text/plain; xcharset=a; charset=UTF-8", "another name"},
    {"text/plain; x=\"charset=a\"", "UTF8", "text/plain; x=\"charset=a\"; charset=UTF-8", "one that is only a text"},
    {"text/plain; charset=a; charset=b", "UTF8", "text/plain; charset=UTF-8; charset=b", "the one that holds"},
    {"text/plain; charset=\"a;b", "UTF8", "text/plain; charset=UTF-8;b", "a quote that is not closed"},
    {"text/plain; charset*=us-ascii'en'a; b=c", "UTF8", "text/plain; charset=UTF-8; b=c", "RFC 2231"},
    {"text/plain; charset*1=b; charset*0=a", "UTF8", "text/plain; charset*1=b; charset=UTF-8", "RFC 2231 in sections"},
    {"text/plain; charset=\"a\" format=flowed", "UTF8", "text/plain; charset=UTF-8; format=flowed",
     "a missing semicolon"},
    {"text/plain; charset=\"a\"junk; a=b", "UTF8", "text/plain; charset=UTF-8;junk; a=b", "text behind the quotes"},
    {"text/plain; charset=\"a\"(junk", "UTF8", "text/plain; charset=UTF-8;(junk", "a comment there that is not closed"},
    {"text/plain (a; x=y; charset=\"(b\"; z=)", "UTF8", "text/plain; charset=UTF-8",
     "the old value kept a comment open that would now swallow the new one"},
    {"text/plain;", "UTF8", "text/plain; charset=UTF-8", "a semicolon at the end"},
    {"text/plain ; ", "UTF8", "text/plain; charset=UTF-8", "blanks at the end"},
    {"", "UTF8", "; charset=UTF-8", "nothing"},
    {"text/plain", "SJIS", "text/plain; charset=Shift_JIS", "the MIME name"},
    {"text/plain", "iso-8859-1", "text/plain; charset=ISO-8859-1", "by any name of the set"},
    {"text/plain", "x-klingon", "text/plain; charset=x-klingon", "a set that is not known"},
    {"text/plain", "x;y=\"z\" \x01\xE9", "text/plain; charset=xyz", "less what no value may hold"},
    {"text/plain", "", "text/plain", "no set: nothing"},
    {"text/plain; charset=a", "\";\"", "text/plain; charset=a", "a name of which nothing is left: nothing"},
};

TEST_F(ContentType, InsertsTheCharsetParameter) {
    for (const InsertRow& row : kInsertRows) EXPECT_EQ(mim_InsertNewCSName(row.type, row.set), row.result) << row.why;
}

// What is inserted is what is read afterwards, and inserting it again changes nothing.
TEST_F(ContentType, WhatIsInsertedIsRead) {
    for (const InsertRow& row : kInsertRows)
        for (const ccs_Descriptor& set : ccs_sets()) {
            const std::string type = mim_InsertNewCSName(row.type, set.name);
            EXPECT_EQ(mim_MimeToQNType(type, "").QNCharSet, set.name) << type;
            EXPECT_EQ(mim_InsertNewCSName(type, set.name), type);
        }
}

}  // namespace
