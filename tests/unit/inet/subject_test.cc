// Encoding of subjects: what stays plain, where words are cut, and that decoding gives the text back.
#include "inet/subject.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ccs/ccs.h"
#include "cvc/cvc.h"
#include "mim/encoded_words.h"

namespace {

using namespace std::string_literals;

struct Row {
    std::string text;
    const char* charset;
    char method;
    std::string expected;
    const char* why;
};

const Row kRows[] = {
    {"", "UTF8", 'b', "", "nothing"},
    {"Plain subject: 100% (really)!", "IA5", 'q', "Plain subject: 100% (really)!", "plain"},
    {"Plain", "UTF8", 'b', "Plain", "plain in a set that is ASCII there"},
    {"a\tb", "IA5", 'q', "a\tb", "a folded subject may hold tabs"},
    {"a =? b", "IA5", 'q', "=?US-ASCII?Q?a_=3D=3F_b?=", "would be taken for a word"},
    {"a = ? b ?= c", "IA5", 'q', "a = ? b ?= c", "would not"},
    {"bell\a", "IA5", 'q', "=?US-ASCII?Q?bell=07?=", "a control character"},
    {"del\x7f", "IA5", 'b', "=?US-ASCII?B?ZGVsfw==?=", "so is DEL"},
    {"a\0b"s, "IA5", 'q', "=?US-ASCII?Q?a=00b?=", "so is NUL"},
    {"Gr\xfc\xdf"s
     "e",
     "ISO8859_1", 'q', "=?ISO-8859-1?Q?Gr=FC=DFe?=", "quoted"},
    {"Gr\xfc\xdf"s
     "e",
     "ISO8859_1", 'b', "=?ISO-8859-1?B?R3L832U=?=", "base64"},
    {"Gr\xfc\xdf"s
     "e",
     "latin1", 'q', "=?ISO-8859-1?Q?Gr=FC=DFe?=", "the label is the MIME name"},
    {"Gr\xfc\xdf"s
     "e",
     "ISO8859_1", '?', "=?ISO-8859-1?B?R3L832U=?=", "base64 is shorter by one"},
    {"Gr\xfc\xdf"s
     "e a",
     "ISO8859_1", '?', "=?ISO-8859-1?Q?Gr=FC=DFe_a?=", "quoted is shorter"},
    {"\xfc", "ISO8859_1", '?', "=?ISO-8859-1?Q?=FC?=", "quoted is shorter"},
    {"\xfc\xfc", "ISO8859_1", '?', "=?ISO-8859-1?B?/Pw=?=", "base64 is shorter"},
    {"a\xfc", "ISO8859_1", '?', "=?ISO-8859-1?Q?a=FC?=", "equal: the one that can be read"},
    {"a_b=c?d \xe4", "ISO8859_1", 'q', "=?ISO-8859-1?Q?a=5Fb=3Dc=3Fd_=E4?=", "what means something in Q"},
    {"Hello", "HZGB2312", 'b', "=?HZ-GB-2312?B?SGVsbG8=?=", "HZ is not ASCII: a tilde is none"},
    {"~{VPND~}", "HZGB2312", 'b', "=?HZ-GB-2312?B?fntWUE5Efn0=?=", "HZ"},
    {"a+b", "UTF7", 'q', "=?UTF-7?Q?a+b?=", "nor is UTF-7: a plus is none"},
    {"\x1b$B$\"\x1b(B", "ISO2022JP", 'b', "=?ISO-2022-JP?B?GyRCJCIbKEI=?=", "shifts"},
    {"caf\xe9", "X-Own", 'q', "=?X-Own?Q?caf=E9?=", "an unknown set is its own label"},
    {"caf", "X-Own", 'q', "=?X-Own?Q?caf?=", "and may be anything but ASCII"},
    {"\xe9", "x?= <y>", 'q', "=?xy?Q?=E9?=", "but no label that ends the word"},
    {"\xe9", "", 'q', "=?UNKNOWN-8BIT?Q?=E9?=", "no set"},
    {"\xe4\xb8\xad", "ISO2022JP", 'q', "=?ISO-2022-JP?Q?=E4=B8=AD?=", "text that is not in its set keeps its bytes"},
};

TEST(Subject, IsEncoded) {
    for (const Row& row : kRows)
        EXPECT_EQ(inet_Subject_toRfc2047_dstring(row.text, row.charset, row.method), row.expected) << row.why;
}

std::vector<std::string> words_of(const std::string& subject) {
    std::vector<std::string> words;
    std::size_t at = 0;
    while (at <= subject.size()) {
        const std::size_t end = std::min(subject.find(' ', at), subject.size());
        words.push_back(subject.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

// Some text of every set, made of characters that it has.
std::string text_in(const ccs_Descriptor& set, int length) {
    std::string utf8;
    for (int number = 0; number < length; ++number) {
        constexpr const char* kCharacters[] = {
            "a", " ", "\xc3\xa4", "\xd1\x8f", "\xce\xb1", "\xe3\x81\x82", "\xe4\xb8\xad", "\xea\xb0\x80", "~", "="};
        utf8 += kCharacters[number * 7 % 10];
    }
    std::string text;
    cvc_ConvertString(utf8, "UTF8", set.name, text);
    return text;
}

TEST(Subject, WordsOfEverySetAreBoundedWholeAndComplete) {
    for (const ccs_Descriptor& set : ccs_sets()) {
        for (int length = 1; length < 120; length += 7) {
            const std::string text = text_in(set, length);
            for (const char method : {'b', 'q', '?'}) {
                const std::string subject = inet_Subject_toRfc2047_dstring(text, set.name, method);
                const mim_DecodedText decoded = mim_2047_to_string_and_cset_dstring(subject);
                std::string expected, got;  // compared as UTF-8: each word shifts back for itself
                EXPECT_EQ(cvc_ConvertString(text, set.name, "UTF8", expected), 0) << set.name;
                EXPECT_EQ(cvc_ConvertString(decoded.text, set.name, "UTF8", got), 0) << set.name << ' ' << subject;
                EXPECT_EQ(got, expected) << set.name << ' ' << method;
                if (subject == text) continue;
                for (const std::string& word : words_of(subject)) {
                    EXPECT_LE(word.size(), 75u) << word;
                    const mim_DecodedText alone = mim_2047_to_string_and_cset_dstring(word, "UTF8");
                    EXPECT_TRUE(alone.converted) << "no character is cut: " << word;
                }
            }
        }
    }
}

TEST(Subject, WordsAreFilled) {
    // "=?UTF-8?B?" and "?=" leave 63 places: 15 groups of 4, for 45 bytes.
    const std::string a45(45, 'a');
    EXPECT_EQ(words_of(inet_Subject_toRfc2047_dstring("\xc3\xa4" + std::string(43, 'a'), "UTF8", 'b')).size(), 1u);
    EXPECT_EQ(words_of(inet_Subject_toRfc2047_dstring("\xc3\xa4" + std::string(44, 'a'), "UTF8", 'b')).size(), 2u);
    const std::string cut = inet_Subject_toRfc2047_dstring(std::string(44, 'a') + "\xc3\xa4", "UTF8", 'b');
    ASSERT_EQ(words_of(cut).size(), 2u);
    EXPECT_EQ(words_of(cut)[1], "=?UTF-8?B?w6Q=?=") << "the character that does not fit goes to the next word";
    // Quoted: 63 places, 3 of them for each encoded byte.
    EXPECT_EQ(words_of(inet_Subject_toRfc2047_dstring("\xfc" + std::string(55, 'a'), "ISO8859_1", 'q')).size(), 1u);
    EXPECT_EQ(words_of(inet_Subject_toRfc2047_dstring("\xfc" + std::string(56, 'a'), "ISO8859_1", 'q')).size(), 2u);
}

TEST(Subject, AWordOfFullLengthHas75Characters) {
    const std::string subject = inet_Subject_toRfc2047_dstring("\xfc" + std::string(200, 'a'), "ISO8859_1", 'q');
    EXPECT_EQ(words_of(subject)[0].size(), 75u);
    EXPECT_EQ(words_of(subject)[1].size(), 75u);
}

TEST(Subject, AnEndlessLabelIsCut) {
    for (const std::string& word :
         words_of(inet_Subject_toRfc2047_dstring(std::string(100, '\xe4'), std::string(200, 'x'), 'q')))
        EXPECT_LE(word.size(), 75u) << word;
}

TEST(Subject, HostileTextCostsLittle) {
    std::string text;
    while (text.size() < 200'000) text += "\xe3\x81\x82\xff";
    EXPECT_GT(inet_Subject_toRfc2047_dstring(text, "UTF8", '?').size(), text.size());
    std::string japanese;
    cvc_ConvertString(std::string(100'000, 'a') + "\xe3\x81\x82", "UTF8", "ISO2022JP", japanese);
    EXPECT_GT(inet_Subject_toRfc2047_dstring(japanese, "ISO2022JP", '?').size(), japanese.size());
}

}  // namespace
