// Property parts: which types may be one, and TNEF whose base64 was not declared.
#include "ux_mimein/properties.h"

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dstring/base64.h"
#include "er/er.h"
#include "support/child.h"
#include "support/home.h"

namespace {

TEST(Source, IsToldByTheBeginningOfTheType) {
    for (const char* type : {"text/calendar", "Text/Calendar; method=REQUEST", "text/calendarium",
                             "application/ploxen-prop", "APPLICATION/PLOXEN-PROPERTIES"})
        EXPECT_TRUE(ux_IsPotentialMapiPropsSrcBP(type)) << type;
    for (const char* type :
         {"", "text/calenda", "text/plain", " text/calendar", "application/ploxen", "application/ms-tnef"})
        EXPECT_FALSE(ux_IsPotentialMapiPropsSrcBP(type)) << type;
}

class Repair : public testing::Test {
protected:
    static std::string repaired(std::string_view content) {
        im_Item item = im_CrNewDataItem();
        item.write(content);
        ux_TryDecodeTnefContent(item);
        return content_of(item);
    }
    static std::string content_of(const im_Item& item) {
        std::string scratch;
        return std::string(item.view(0, static_cast<std::size_t>(item.size()), scratch));
    }
    // Signature and key of a stream, and what follows.
    static std::string stream(std::size_t size) {
        std::string bytes = "\x78\x9F\x3E\x22\x11\x22";
        while (bytes.size() < size) bytes += static_cast<char>(bytes.size() * 7);
        return bytes;
    }
    static std::string in_lines(std::string_view bytes, std::size_t width, std::string_view line_end) {
        std::string text, lines;
        dstring_append_base64(text, bytes);
        for (std::size_t at = 0; at < text.size(); at += width) lines += text.substr(at, width) + std::string(line_end);
        return lines;
    }
    TestHome home_;
};

TEST_F(Repair, DecodesBase64) {
    for (const std::size_t size : {6, 7, 8, 57, 1000, 400'000}) {
        const std::string bytes = stream(size);
        ASSERT_TRUE(repaired(in_lines(bytes, 76, "\n")) == bytes) << size;
        ASSERT_TRUE(repaired(in_lines(bytes, 76, "\r\n")) == bytes) << size;
        ASSERT_TRUE(repaired(in_lines(bytes, 76, "")) == bytes) << "one line " << size;
        ASSERT_TRUE(repaired(in_lines(bytes, 3000, "\r\n")) == bytes) << "long lines " << size;
    }
}

TEST_F(Repair, ALastLineWithoutAnEndIsRead) {
    const std::string text = in_lines(stream(100), 76, "\n");
    EXPECT_EQ(repaired(text.substr(0, text.size() - 1)), stream(100));
}

TEST_F(Repair, EndsAtALineThatIsAMarker) {
    const std::string bytes = stream(57), lines = in_lines(bytes, 76, "\n");
    for (const char* marker : {"--Dummy1\n", "--Dummy1--\n", "--Dummy1-- \t\r\n", "--Dummy1"})
        EXPECT_EQ(repaired(lines + marker + (std::string_view(marker).ends_with('\n') ? lines : "")), bytes) << marker;
    EXPECT_NE(repaired(lines + "--Dummy1x\n" + lines), bytes) << "more than the marker";
}

TEST_F(Repair, LeavesOtherItemsAlone) {
    for (const std::string& content :
         {std::string(), std::string("eJ8"), std::string("eJ9+abcd"), std::string(" eJ8+abcd"), stream(50),
          std::string("text"), std::string("EJ8+abcd")})
        EXPECT_EQ(repaired(content), content);
}

TEST_F(Repair, AFailureIsAcceptedAndTheItemStaysAsItWas) {
    EXPECT_EQ(run_in_child([] {
                  const std::string text = in_lines(stream(3'000'000), 76, "\n");
                  im_Item item = im_CrNewDataItem();
                  item.write(text);
                  item.place();
                  limit_file_size(1'000'000);
                  ux_TryDecodeTnefContent(item);
                  if (er_GetLive()) return 1;
                  return content_of(item) == text ? 0 : 2;
              }),
              0);
}

}  // namespace
