// Header fields with parameters: values, names, quotes, comments, sections, and everything that mail gets wrong.
#include "msl/msl.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

// A parameter as one line: "value", with "set" and "language" in brackets when there are any; "-" when there is none.
std::string shown(const msl_Field& field, std::string_view name) {
    const auto parameter = field.parameter(name);
    if (!parameter) return "-";
    std::string text = parameter->value;
    if (!parameter->charset.empty() || !parameter->language.empty())
        text += " [" + parameter->charset + ' ' + parameter->language + ']';
    return text;
}

std::string in_2047(std::string_view field, std::string_view name) {
    const auto parameter = msl_Field(field).parameter(name);
    return parameter ? msl_convert2231to2047(*parameter) : "-";
}

struct ValueRow {
    const char* field;
    const char* value;
    const char* why;
};
constexpr ValueRow kValueRows[] = {
    {"", "", "nothing"},
    {"attachment", "attachment", "a value alone"},
    {"  attachment \t", "attachment", "blanks around"},
    {"attachment;", "attachment", "a semicolon behind"},
    {"attachment ; filename=a", "attachment", "a blank before the semicolon"},
    {"attachment\r\n ; filename=a", "attachment", "still folded"},
    {"text/plain (hello); x=y", "text/plain", "a comment behind"},
    {"(hello) text/plain", "text/plain", "a comment before"},
    {"(a (b (c) d) \\) e)text/plain(f)", "text/plain", "comments nest and hold escapes"},
    {"text/plain (hello; x=y", "text/plain (hello", "a comment that is not closed is text"},
    {"text(a)plain", "text plain", "a comment parts words"},
    {"text / plain", "text / plain", "blanks inside stay"},
    {"\"attachment\"; a=b", "attachment", "quotes around go"},
    {"attachment filename=a.txt", "attachment", "a missing semicolon"},
    {"attachment (x) filename (y) = a.txt", "attachment", "the same with comments"},
    {"filename=a.txt", "", "no value"},
    {"filename=a.txt; size=3", "", "no value, more parameters"},
    {"=x; a=b", "=x", "no name: it is the value as it stands"},
    {"text/html=x; a=b", "text/html=x", "a slash is in no name"},
    {"; a=b", "", "empty"},
    {";;;", "", "semicolons alone"},
    {"caf\xC3\xA9; a=b", "caf\xC3\xA9", "8-bit"},
};

TEST(MslTest, Value) {
    for (const ValueRow& row : kValueRows) EXPECT_EQ(msl_Field(row.field).value(), row.value) << row.why;
}

struct ParameterRow {
    const char* field;
    const char* name;
    const char* shown;
    const char* why;
};
constexpr ParameterRow kPlainRows[] = {
    {"a/b; x=y", "x", "y", "plain"},
    {"a/b; x=y", "X", "y", "a name in any case"},
    {"a/b; Charset=UTF-8", "charset", "UTF-8", "the same the other way; a value keeps its case"},
    {"a/b", "x", "-", "no parameters"},
    {"a/b; xx=y", "x", "-", "another name"},
    {"a/b; x=y", "xx", "-", "another, longer name"},
    {"a/b; x=", "x", "", "an empty value"},
    {"a/b; x=;y=z", "x", "", "an empty value before another"},
    {"a/b; x", "x", "-", "no value at all"},
    {"a/b; x; y=z", "y", "z", "a name without a value is passed over"},
    {"a/b;x=y", "x", "y", "no blank"},
    {"a/b; x=y;", "x", "y", "a semicolon at the end"},
    {"a/b;; ;x=y", "x", "y", "empty parameters"},
    {"a/b; x = y", "x", "y", "blanks around the sign"},
    {"a/b;\tx\t=\r\n\ty ", "x", "y", "and other white space"},
    {"a/b; x (c) = (d) y (e) ; z=1", "x", "y", "comments around everything"},
    {"a/b; x=y(e)", "x", "y", "a comment touches the value"},
    {"a/b; x=(c;d=e)y", "x", "y", "a semicolon in a comment"},
    {"a/b; x=(c)", "x", "", "nothing but a comment"},
    {"a/b; x=us-ascii (Plain text)", "x", "us-ascii", "the example of RFC 2045"},
    {"a/b; x=my file.txt; z=1", "x", "my file.txt", "an unquoted value with blanks"},
    {"a/b; x=my file (1).txt; z=1", "x", "my file (1).txt", "parentheses inside it are text"},
    {"a/b; x=my (a;b).txt; z=1", "x", "my (a;b).txt", "a semicolon between them too"},
    {"a/b; x=my (file.txt; z=1", "x", "my (file.txt", "not closed: text"},
    {"a/b; x=my (file.txt; z=1", "z", "1", "and the next parameter is there"},
    {"a/b; x=( (a); z=(b)1", "z", "(b)1", "after a comment that is not closed there are none"},
    {"a/b; x=a=b==; z=1", "x", "a=b==", "signs in a value"},
    {"a/b; x==?utf-8?Q?=C3=A9?=; z=1", "x", "=?utf-8?Q?=C3=A9?=", "an encoded word, not quoted"},
    {"a/b; x=a\"b;c\"d", "x", "a\"b", "a quote inside is text"},
    {"a/b; x='y'", "x", "'y'", "apostrophes are no quotes"},
    {"a/b; x=a\\b", "x", "a\\b", "a backslash is text"},
    {"a/b; x=caf\xC3\xA9.txt", "x", "caf\xC3\xA9.txt", "8-bit"},
    {"a/b; x=1; x=2", "x", "1", "the first of two holds"},
    {"a/b; x=; x=2", "x", "", "also when it is empty"},
    {"a/b; some junk x=1; z=2", "x", "1", "words before a name"},
    {"a/b; x/y=1; z=2", "z", "2", "no name"},
    {"a/b; =1; z=2", "z", "2", "an empty name"},
    {"a/b; \"x\"=1; z=2", "x", "-", "a name is not quoted"},
    {"x=1; z=2", "x", "1", "a parameter without a value before it"},
    {"attachment x=1; z=2", "x", "1", "a missing semicolon"},
};

constexpr ParameterRow kQuotedRows[] = {
    {"a/b; x=\"y\"", "x", "y", "quoted"},
    {"a/b; x=\"\"", "x", "", "empty"},
    {"a/b; x=\" y  z \"; w=1", "x", " y  z ", "blanks inside stay"},
    {"a/b; x=\"a;b=c\"; z=1", "x", "a;b=c", "specials"},
    {"a/b; x=\"a(b\"; z=(c)1", "z", "1", "no comment begins in quotes"},
    {"a/b; x=\"a\\\"b\"", "x", "a\"b", "an escaped quote"},
    {"a/b; x=\"a\\\\\"; z=1", "x", "a\\", "an escaped backslash"},
    {"a/b; x=\"a\\\\\"; z=1", "z", "1", "after which the quote closes"},
    {"a/b; x=\"C:\\new\\file.txt\"", "x", "C:\\new\\file.txt", "a path that nobody escaped"},
    {"a/b; x=\"a\r\n b\"", "x", "a b", "folded inside"},
    {"a/b; x=\"a; z=1", "x", "a", "not closed: to the semicolon"},
    {"a/b; x=\"a; z=1", "z", "1", "and the next parameter is there"},
    {"a/b; x=\"a b \\\"c", "x", "a b \"c", "not closed, with an escape"},
    {"a/b; x=\"", "x", "", "a quote alone"},
    {"a/b; x=\"\\", "x", "\\", "a backslash at the end"},
    {"a/b; x=\"\\\"", "x", "\"", "an escaped quote at the end"},
    {"a/b; x=\"y\" (c); z=1", "z", "1", "a comment behind"},
    {"a/b; x=\"y\"junk; z=1", "x", "y", "text behind is dropped"},
    {"a/b; x=\"y\"junk; z=1", "z", "1", "to the semicolon"},
    {"a/b; x=\"utf-8\" format=flowed", "format", "flowed", "a missing semicolon"},
    {"a/b; x=\"utf-8\"format=flowed", "format", "flowed", "and no blank"},
    {"a/b; x=\"foo \"bar\" baz\"; z=1", "x", "foo ", "quotes inside quotes"},
    {"a/b; x=\"foo \"bar\" baz\"; z=1", "z", "1", "do no further harm"},
    {"a/b; x= \"y\"", "x", "y", "a blank before the quote"},
    {"a/b; x=(c)\"y\"", "x", "y", "a comment before it"},
};

constexpr ParameterRow kStarredRows[] = {
    {"a; f*=us-ascii'en-us'This%20is%20%2A%2A%2Afun", "f*", "This is ***fun [us-ascii en-us]", "as in RFC 2231"},
    {"a; f*=us-ascii'en'x", "f", "-", "the plain one is another"},
    {"a; f=x", "f*", "-", "and the other way"},
    {"a; f=x; f*=utf-8''y", "f*", "y [utf-8 ]", "both: each for itself"},
    {"a; f=x; f*=utf-8''y", "f", "x", "both, the plain one"},
    {"a; F*=UTF-8''%C3%A9", "f*", "\xC3\xA9 [UTF-8 ]", "a name in any case"},
    {"a; f*=''abc", "f*", "abc", "no set, no language"},
    {"a; f*='en'abc", "f*", "abc [ en]", "no set"},
    {"a; f*=a%20b", "f*", "a b", "no apostrophes: all is text"},
    {"a; f*=it's%20b", "f*", "it's b", "one apostrophe: all is text"},
    {"a; f*=utf-8''it's%20'b'", "f*", "it's 'b' [utf-8 ]", "apostrophes in the text"},
    {"a; f*=utf-8''100%", "f*", "100% [utf-8 ]", "a bad escape: at the end"},
    {"a; f*=utf-8''%4", "f*", "%4 [utf-8 ]", "half of one"},
    {"a; f*=utf-8''%4G%zz%%41", "f*", "%4G%zz%A [utf-8 ]", "no digits"},
    {"a; f*=utf-8''%c3%A9", "f*", "\xC3\xA9 [utf-8 ]", "digits in any case"},
    {"a; f*=\"utf-8''a%20b\"", "f*", "a b [utf-8 ]", "quotes that should not be there"},
    {"a; f*=utf-8''\"a%20b\"", "f*", "a b [utf-8 ]", "and inside"},
    {"a; f*=utf-8''a b.txt; z=1", "f*", "a b.txt [utf-8 ]", "blanks"},
    {"a; f*0=ab; f*1=cd", "f*", "abcd", "sections"},
    {"a; f*0=\"a b\"; f*1=\" c\"", "f*", "a b c", "quoted sections"},
    {"a; f*1=cd; f*0=ab", "f*", "abcd", "in any order"},
    {"a; f*2=ef; f*10=z; f*0=ab", "f*", "abefz", "with gaps, by number and not by digits"},
    {"a; f*1=x; f*2=y", "f*", "xy", "from 1"},
    {"a; f*00=ab; f*01=cd", "f*", "abcd", "noughts before the number"},
    {"a; f*0=ab; f*0=xx; f*1=cd", "f*", "abcd", "a number twice: the first holds"},
    {"a; f*0*=utf-8''%C3; f*1*=%A9; f*2=%41", "f*", "\xC3\xA9%41 [utf-8 ]", "mixed: only with a star are they escapes"},
    {"a; f*0=a%41; f*1*=%41", "f*", "a%41A", "no labels when the first has no star"},
    {"a; f*0*=utf-8'de'a%; f*1*=41b", "f*", "aAb [utf-8 de]", "an escape cut by a section"},
    {"a; f*0*=utf-8''a%; f*1=41b", "f*", "a%41b [utf-8 ]", "but not from one kind into the other"},
    {"a; f*1*=utf-8''b; f*0*=iso-8859-1''%E9", "f*", "\xE9utf-8''b [iso-8859-1 ]", "labels stand in the first only"},
    {"a; f*0=x; f*=utf-8''y", "f*", "y [utf-8 ]", "without a number goes before sections"},
    {"a; f*x=1; f**=2; f*1x=3; *=4; *0=5; f*1000=6", "f*", "-", "no stars that mean anything"},
    {"a; f*999=z; f*0=a", "f*", "az", "the largest number"},
    {"a; f*0=a; g*1=b; f*1=c", "f*", "ac", "sections of two names"},
    {"a; f*0=\"=?utf-8?Q?a\"; f*1=\"b?=\"", "f*", "=?utf-8?Q?ab?=", "an encoded word in sections"},
};

TEST(MslTest, Parameters) {
    for (const ParameterRow& row : kPlainRows) EXPECT_EQ(shown(msl_Field(row.field), row.name), row.shown) << row.why;
    for (const ParameterRow& row : kQuotedRows) EXPECT_EQ(shown(msl_Field(row.field), row.name), row.shown) << row.why;
    for (const ParameterRow& row : kStarredRows) EXPECT_EQ(shown(msl_Field(row.field), row.name), row.shown) << row.why;
}

constexpr ParameterRow kConvertedRows[] = {
    {"a; f*=utf-8''report.pdf", "f*", "report.pdf", "ASCII stays"},
    {"a; f*0=re; f*1=port.pdf", "f*", "report.pdf", "without a set too"},
    {"a; f*=utf-8''", "f*", "", "empty"},
    {"a; f*=utf-8''%C3%A9-menu-2026.txt", "f*", "=?UTF-8?Q?=C3=A9-menu-2026.txt?=", "UTF-8"},
    {"a; f*=UTF8''%C3%A9-menu-2026.txt", "f*",
     "=?UTF-8?Q?=C3=A9-menu-2026.txt?=", "by its MIME name, whatever it was called"},
    {"a; f*=iso-8859-1''%E9t%E9-2026.txt", "f*", "=?ISO-8859-1?Q?=E9t=E9-2026.txt?=", "not converted, labelled"},
    {"a; f*=cp932''%93%FA", "f*", "=?Shift_JIS?B?k/o=?=", "another customary name"},
    {"a; f*=ibm850''%82.txt", "f*", "=?ibm850?Q?=82.txt?=", "not known here: label and bytes stay"},
    {"a; f*=x(y?z''%82.txt", "f*", "=?xyz?Q?=82.txt?=", "a label is written so that the word can be read"},
    {"a; f*=x-unknown''abc", "f*", "abc", "what reads as ASCII stays, though nobody knows the set"},
    {"a; f*=''%C3%A9", "f*", "=?UTF-8?B?w6k=?=", "without a set: UTF-8 when it is"},
    {"a; f*0*=''%C3; f*1*=%A9", "f*", "=?UTF-8?B?w6k=?=", "a character in two sections"},
    {"a; f*=''%E9", "f*", "=?UNKNOWN-8BIT?Q?=E9?=", "else unknown"},
    {"a; f*=utf-8''%E9", "f*", "=?UTF-8?Q?=E9?=", "bytes that the set does not have stay bytes"},
    {"a; f*=utf-8''a%0D%0Ab%00", "f*", "=?UTF-8?B?YQ0KYgA=?=", "control characters never come out as such"},
    {"a; f*=''a%0Ab", "f*", "=?US-ASCII?B?YQpi?=", "nor without a set"},
    {"a; f*0=\"=?utf-8?Q?=C3\"; f*1=\"=A9?=\"", "f*", "=?utf-8?Q?=C3=A9?=", "encoded words stay when there is no set"},
    {"a; f*=utf-8''%3D%3Futf-8%3FQ%3Fa%3F%3D", "f*",
     "=?UTF-8?B?PT91dGYtOD9RP2E/PQ==?=", "what only looks like one does not become one"},
    {"a; f=x", "f*", "-", "none"},
};

TEST(MslTest, ConvertsToEncodedWords) {
    for (const ParameterRow& row : kConvertedRows) EXPECT_EQ(in_2047(row.field, row.name), row.shown) << row.why;
}

struct PlaceRow {
    const char* field;
    const char* name;
    const char* parameter;  // the text from the name to the end of the value
    const char* value;      // the text of the value
    const char* why;
};
constexpr PlaceRow kPlaceRows[] = {
    {"text/plain; charset=us-ascii; a=b", "charset", "charset=us-ascii", "us-ascii", "plain"},
    {"text/plain; charset = \"us-ascii\" ; a=b", "charset", "charset = \"us-ascii\"", "\"us-ascii\"",
     "quotes belong to it"},
    {"text/plain; charset= us-ascii (c) ; a=b", "charset", "charset= us-ascii", "us-ascii", "comments behind do not"},
    {"text/plain; charset=(c)us-ascii", "charset", "charset=(c)us-ascii", "us-ascii", "comments before do not"},
    {"text/plain; charset=; a=b", "charset", "charset=", "", "empty"},
    {"text/plain; charset=", "charset", "charset=", "", "empty, at the end"},
    {"text/plain; charset=\"us; a=b", "charset", "charset=\"us", "\"us", "a quote that is not closed"},
    {"text/plain; charset=\"a\\\"b\"x; a=b", "charset", "charset=\"a\\\"b\"", "\"a\\\"b\"",
     "escapes; junk behind is left"},
    {"text/plain; charset=a; charset=b", "charset", "charset=a", "a", "the one that holds"},
    {"text/plain; charset*1=b; charset*0*=us''a", "charset*", "charset*0*=us''a", "us''a",
     "the first section by number"},
    {"text/plain charset=a", "charset", "charset=a", "a", "a missing semicolon"},
};

TEST(MslTest, PlacesInTheText) {
    for (const PlaceRow& row : kPlaceRows) {
        const auto parameter = msl_Field(row.field).parameter(row.name);
        ASSERT_TRUE(parameter) << row.why;
        const std::string_view field = row.field;
        EXPECT_EQ(field.substr(parameter->name_begin, parameter->value_end - parameter->name_begin), row.parameter)
            << row.why;
        EXPECT_EQ(field.substr(parameter->value_begin, parameter->value_end - parameter->value_begin), row.value)
            << row.why;
    }
}

TEST(MslTest, AFieldMovesWithItsText) {
    msl_Field field("a/b; x=y");  // short enough to lie inside the object
    const msl_Field moved(std::move(field));
    EXPECT_EQ(shown(moved, "x"), "y");
    msl_Field other;
    EXPECT_EQ(other.value(), "");
    EXPECT_EQ(shown(other, "x"), "-");
    other = moved;
    EXPECT_EQ(shown(other, "x"), "y");
}

TEST(MslTest, Header) {
    msl_Header header = msl_newHeader();
    EXPECT_EQ(msl_getMimeHeader(header, msl_FieldCode::content_type), "");
    msl_addMimeHeader(header, msl_FieldCode::content_disposition, "attachment; filename=a.txt");
    EXPECT_EQ(msl_getMimeHeader(header, msl_FieldCode::content_type), "");
    EXPECT_EQ(msl_getMimeHeader(header, msl_FieldCode::content_disposition), "attachment");
    EXPECT_EQ(shown(msl_field(header, msl_FieldCode::content_disposition), "filename"), "a.txt");
    msl_addMimeHeader(header, msl_FieldCode::content_type, "text/plain; name=b.txt");
    EXPECT_EQ(msl_getMimeHeader(header, msl_FieldCode::content_type), "text/plain");
    EXPECT_EQ(shown(msl_field(header, msl_FieldCode::content_type), "name"), "b.txt");
    EXPECT_EQ(shown(msl_field(header, msl_FieldCode::content_disposition), "filename"), "a.txt");
    EXPECT_EQ(static_cast<int>(msl_FieldCode::content_type), 68);
    EXPECT_EQ(static_cast<int>(msl_FieldCode::content_disposition), 71);
}

TEST(MslTest, BoundOnParameters) {
    std::string field = "a/b";
    for (std::size_t n = 1; n <= kMostParameters + 1; ++n) field += "; p" + std::to_string(n) + "=v";
    EXPECT_EQ(shown(msl_Field(field), "p" + std::to_string(kMostParameters)), "v");
    EXPECT_EQ(shown(msl_Field(field), "p" + std::to_string(kMostParameters + 1)), "-");

    std::string sections = "a/b", whole;
    for (int n = 999; n >= 0; --n) sections += "; f*" + std::to_string(n) + "*=%4" + std::to_string(n % 8 + 1);
    for (int n = 0; n < 1000; ++n) whole += static_cast<char>('A' + n % 8);
    EXPECT_EQ(shown(msl_Field(sections), "f*"), whole) << "as many sections as there can be";
}

// A megabyte of what makes parsers slow takes about as long as a megabyte of anything: here, a quadratic reading
// would take minutes.
TEST(MslTest, LinearInHostileText) {
    constexpr std::size_t kMegabyte = 1 << 20;
    const std::string_view patterns[] = {"(",   ")",    "\"", "\\",    ";",       "=",       "x=\"",   ";x=(",
                                         "(\"", "\\\"", "a ", "x=y;",  ";x=\"\\", ";x*0*=%", ";x*=''", "()",
                                         "' ",  ";(=",  "x*", "\r\n ", "x=(",     ";x*1=\"", "%4",     "=?"};
    for (const std::string_view pattern : patterns) {
        std::string text = "a/b; f*=utf-8''";
        while (text.size() < kMegabyte) text += pattern;
        const auto begin = std::chrono::steady_clock::now();
        const msl_Field field(text);
        for (const char* name : {"x", "x*", "f*"})
            if (const auto parameter = field.parameter(name)) {
                EXPECT_LE(parameter->value.size(), text.size());
                msl_convert2231to2047(*parameter);
            }
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20)) << pattern;
    }
}

// What is written by the rules reads as what it was.
TEST(MslTest, WrittenByTheRules) {
    std::mt19937 random(2231);
    const auto below = [&](std::size_t bound) { return random() % bound; };
    constexpr std::string_view hex = "0123456789ABCDEF";
    for (int round = 0; round < 2000; ++round) {
        std::string value(below(60), ' ');
        for (char& c : value) c = static_cast<char>(0x20 + below(0x5F));
        std::string quoted = "\"", percent = "utf-8'en'";
        for (const char c : value) {
            if (c == '"' || c == '\\') quoted += '\\';
            quoted += c;
            percent += {'%', hex[static_cast<unsigned char>(c) >> 4], hex[static_cast<unsigned char>(c) & 15]};
        }
        quoted += '"';
        const std::string field = "a/b (c); before=1;x=" + quoted + "; x*=" + percent + " ; behind=\"2\"";
        EXPECT_EQ(shown(msl_Field(field), "x"), value) << field;
        EXPECT_EQ(shown(msl_Field(field), "x*"), value + " [utf-8 en]") << field;
        EXPECT_EQ(shown(msl_Field(field), "behind"), "2") << field;

        std::vector<std::string> sections;
        for (std::size_t at = 0; at < percent.size() || at == 0;) {
            const std::size_t end =
                std::max<std::size_t>(at == 0 ? 9 : at, std::min(percent.size(), at + 1 + below(20)));
            sections.push_back("x*" + std::to_string(sections.size()) + "*=" + percent.substr(at, end - at));
            at = std::max(end, at + 1);
        }
        std::shuffle(sections.begin(), sections.end(), random);
        std::string in_sections = "a/b";
        for (const std::string& section : sections) in_sections += "; " + section;
        EXPECT_EQ(shown(msl_Field(in_sections), "x*"), value + " [utf-8 en]") << in_sections;
    }
}

}  // namespace
