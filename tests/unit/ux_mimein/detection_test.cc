// The front of the detector: short samples are stretched, names are bounded, items are read in blocks.
#include "ux_mimein/detection.h"

#include <string>

#include <gtest/gtest.h>

#include "base/base.h"
#include "im/im.h"
#include "support/home.h"

namespace {

using namespace std::string_literals;

im_Item item(std::string_view text) {
    im_Item made = im_CrNewDataItem();
    made.write(text);
    return made;
}

std::string plain_text(std::size_t size) {
    std::string text;
    while (text.size() < size) text += "The quick brown fox jumps over the lazy dog. ";
    text.resize(size);
    return text;
}

const std::string kAccents =
    "Gr\xc3\xbc\xc3\x9f"s
    "e \xe2\x82\xac aus M\xc3\xbcnchen, \xc3\x9c"s
    "bergabe, Gen\xc3\xa8ve. ";

TEST(Detection, NoDataIsNoSet) { EXPECT_EQ(ux_InAutodetectCharset(""), std::nullopt); }

TEST(Detection, ShortSamplesAreRepeatedUntilTheyHave64Bytes) {
    const std::string twenty = "\xf0\xd2\xc9\xd7\xc5\xd4, \xcd\xc9\xd2! \xeb\xc1\xcb \xc4\xc5\xcc";  // Russian
    ASSERT_EQ(twenty.size(), 20u);
    EXPECT_EQ(ux_InAutodetectCharset(twenty), base_pnDetectAndReport(twenty + twenty + twenty + twenty));
    for (std::size_t length = 1; length < 64; ++length) {
        const std::string sample = std::string(length - 1, 'x') + "\xe9";
        std::string stretched;
        while (stretched.size() < 64) stretched += sample;
        EXPECT_LT(stretched.size(), 128u);
        EXPECT_EQ(ux_InAutodetectCharset(sample), base_pnDetectAndReport(stretched)) << length;
    }
}

TEST(Detection, From64BytesOnDataIsTakenAsItIs) {
    const std::string sample =
        "Gr\xc3\xbc\xc3\x9f"s
        "e aus M\xc3\xbcnchen";
    for (const std::size_t size : {64u, 65u, 100u}) {
        std::string data = sample;
        data.resize(size, ' ');
        EXPECT_EQ(ux_InAutodetectCharset(data), base_pnDetectAndReport(data)) << size;
    }
}

TEST(Detection, PlainTextIsIa5) {
    EXPECT_EQ(ux_InAutodetectCharset("a"), "IA5");
    EXPECT_EQ(ux_InAutodetectCharset(std::string(1000, 'a')), "IA5");
}

TEST(Detection, NamesAreBounded) {
    EXPECT_EQ(ux_InAutodetectCharset("Gr\xc3\xbc\xc3\x9f"s
                                     "e",
                                     4),
              "UTF8");
    EXPECT_EQ(ux_InAutodetectCharset("Gr\xc3\xbc\xc3\x9f"s
                                     "e",
                                     3),
              "UTF");
}

TEST(Detection, OfTheBeginningOfAnItem) {
    const TestHome home;
    const std::string plain = plain_text(10240), accents = kAccents;
    EXPECT_EQ(ux_InAutodetectCharset(item(""), 10240), std::nullopt);
    EXPECT_EQ(ux_InAutodetectCharset(item(accents), 10240), "UTF8");
    EXPECT_EQ(ux_InAutodetectCharset(item(plain + accents), 10240), "IA5") << "beyond the limit";
    EXPECT_EQ(ux_InAutodetectCharset(item(plain.substr(accents.size()) + accents), 10240), "UTF8") << "within it";
    EXPECT_EQ(ux_InAutodetectCharset(item(plain + accents), 0), "UTF8") << "no limit";
    EXPECT_EQ(ux_InAutodetectCharset(item(plain + accents), -1), "UTF8") << "no limit";
    EXPECT_EQ(ux_InAutodetectCharset(item(plain + accents), 1), "IA5") << "one byte";
}

TEST(Detection, OfWholeLargeItems) {
    const TestHome home;
    const std::string plain = plain_text(300'000), accents = kAccents;
    EXPECT_EQ(ux_InAutodetectCharset(item(plain), 0), "IA5");
    EXPECT_EQ(ux_InAutodetectCharset(item(plain + accents), 0), "UTF8");
    EXPECT_EQ(ux_InAutodetectCharset(item(accents + plain), 0), "UTF8");
    EXPECT_EQ(ux_InAutodetectCharset(item(plain + accents), 200'000), "IA5");
}

}  // namespace
