// Detection of character sets, and that the short way for ASCII says what the detector says.
#include "base/base.h"

#include <optional>
#include <string>

#include <gtest/gtest.h>
#include <uchardet/uchardet.h>

namespace {

using namespace std::string_literals;

std::string repeated(std::string_view text) {
    std::string out;
    while (out.size() < 400) out += text;
    return out;
}

struct Row {
    std::string text;
    std::optional<std::string> expected;
    const char* why;
};

const Row kRows[] = {
    {"", std::nullopt, "no data"},
    {"a", "IA5", "one letter"},
    {"\0"s, "IA5", "one zero byte"},
    {repeated("~ ~} ~~ ~/ {"), "IA5", "tildes that open nothing"},
    {repeated("\x1b[31mred\x1b[0m"), "IA5", "escapes that are no ISO 2022"},
    {repeated("~{VPND~} "), "HZGB2312", "HZ"},
    {repeated("\x1b$B$3$s$K$A$O\x1b(B "), "ISO2022JP", "Japanese in 7 bits"},
    {repeated("Gr\xc3\xbc\xc3\x9f"s
              "e "),
     "UTF8", "UTF-8"},
    {"\xef\xbb\xbf"s
     "abc",
     "UTF8", "a signature"},
    {"\xff\xfe"s
     "a\0b\0"s,
     "UTF-16", "no native name: the detector's own"},
    {repeated("\xf0\xd2\xc9\xd7\xc5\xd4 \xcd\xc9\xd2 "), "KOI8_R", "Russian"},
    {repeated("\xbe\xc8\xb3\xe7\xc7\xcf\xbc\xbc\xbf\xe4 \xc7\xd1\xb1\xb9\xbe\xee "), "KSC5601", "the detector's UHC"},
    {repeated("\xc4\xe3\xba\xc3 \xd6\xd0\xb9\xfa "), "GB18030", "stays GB18030"},
};

TEST(Detection, OfWholeTexts) {
    for (const Row& row : kRows) EXPECT_EQ(base_pnDetectAndReport(row.text), row.expected) << row.why;
}

TEST(Detection, OfTextsCutAnywhere) {
    for (const Row& row : kRows) {
        for (std::size_t cut = 64; cut <= row.text.size(); ++cut) {
            base_Detector detector;
            detector.feed(std::string_view(row.text).substr(0, cut));
            detector.feed(std::string_view(row.text).substr(cut));
            EXPECT_EQ(detector.result(), row.expected) << row.why << ", cut at " << cut;
        }
    }
}

TEST(Detection, PlainTextBeforeDoesNotHideWhatFollows) {
    base_Detector detector;
    for (int block = 0; block < 10; ++block) detector.feed(repeated("Plain text. "));
    detector.feed(
        repeated("Gr\xc3\xbc\xc3\x9f"s
                 "e "));
    EXPECT_EQ(detector.result(), "UTF8");
}

TEST(Detection, AnEscapeOfHzBetweenTwoPieces) {
    base_Detector detector;
    detector.feed(repeated("Plain text. ") + '~');
    detector.feed("{VPND~} " + repeated("~{VPND~} "));
    EXPECT_EQ(detector.result(), "HZGB2312");
}

TEST(Detection, ASignatureInTheMiddleIsNone) {
    base_Detector detector;
    detector.feed("Plain text. ");
    detector.feed("\xff\xfe");
    EXPECT_NE(detector.result(), "UTF-16");
}

// A few characters that are not ASCII in much text that is.
TEST(Detection, OfUtf8IsNoGuess) {
    const std::string english = repeated("We met in a nice place near the station. ");
    struct Utf8Row {
        std::string text;
        bool is_utf8;
        const char* why;
    };
    const Utf8Row rows[] = {
        {english + "caf\xc3\xa9", true, "two bytes"},
        {english + "100 \xe2\x82\xac", true, "three"},
        {english + "\xf0\x9f\x99\x82", true, "four"},
        {english + "\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", true,
         "the ends of every range"},
        {"caf\xc3\xa9 " + english, true, "at the start"},
        {"caf\xc3\xa9 " + english + "\xf0\x9f\x99", true, "the last one is cut"},
        {english + "caf\xc3", false, "nothing but a cut one"},
        {english + "caf\xe9", false, "Latin-1"},
        {english + "caf\xc3\xa9, caf\xe9 ", false, "both"},
        {english + "caf\xc3\xa9, \x80", false, "a byte that begins nothing"},
        {english + "caf\xc3\xa9, \xc1\xbf", false, "longer than it must be"},
        {english + "caf\xc3\xa9, \xe0\x9f\xbf", false, "longer than it must be"},
        {english + "caf\xc3\xa9, \xf0\x8f\xbf\xbf", false, "longer than it must be"},
        {english + "caf\xc3\xa9, \xed\xa0\x80", false, "half a pair of UTF-16"},
        {english + "caf\xc3\xa9, \xf4\x90\x80\x80", false, "beyond Unicode"},
        {english + "caf\xc3\xa9, \xf5\x80\x80\x80", false, "beyond Unicode"},
        {english + "caf\xc3\xa9, \xe2\x82 x", false, "one that ends early"},
    };
    for (const Utf8Row& row : rows) {
        for (std::size_t cut = row.text.size() - 24; cut < row.text.size(); ++cut) {
            const std::string_view text = row.text;
            base_Utf8Watch watch;
            watch.feed(text.substr(0, cut));
            watch.feed(text.substr(cut));
            EXPECT_EQ(watch.is_utf8(), row.is_utf8) << row.why << ", cut at " << cut;
            base_Detector detector;
            detector.feed(text.substr(0, cut));
            detector.feed(text.substr(cut));
            EXPECT_TRUE(!row.is_utf8 || detector.result() == "UTF8") << row.why << ", cut at " << cut;
        }
        EXPECT_TRUE(!row.is_utf8 || base_pnDetectAndReport(row.text) == "UTF8") << row.why;
    }
}

std::string by_uchardet(const std::string& text) {
    uchardet_t engine = uchardet_new();
    uchardet_handle_data(engine, text.data(), text.size());
    uchardet_data_end(engine);
    std::string name = uchardet_get_charset(engine);
    uchardet_delete(engine);
    return name;
}

TEST(Detection, TheShortWayForAsciiAgreesWithTheDetector) {
    unsigned seed = 7;
    for (int round = 0; round < 500; ++round) {
        std::string text(1 + round % 300, '\0');
        for (char& c : text) {
            seed = seed * 1103515245 + 12345;
            c = static_cast<char>(seed >> 16 & 0x7f);
            if (c == '\x1b') c = ' ';
        }
        for (std::size_t at = text.find("~{"); at != std::string::npos; at = text.find("~{")) text[at] = ' ';
        EXPECT_EQ(by_uchardet(text), "ASCII") << round;
        EXPECT_EQ(base_pnDetectAndReport(text), "IA5") << round;
    }
}

}  // namespace
