// Reading a saved header back: fields, continuation lines, joining rules and their bounds.
#include "ux_in/saved_header.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using ux::SavedHeader;

im_Item item_of(std::string_view text) {
    im_Item item = im_CrNewDataItem();
    item.write(text);
    return item;
}

TEST(SavedHeader, FieldsAreTrimmedAndOtherLinesSkipped) {
    const im_Item item = item_of("Subject:  a b \t\r\nno colon here\r\n folded: yes\r\nTo :x\r\n:y\r\nlast:");
    SavedHeader in(item);
    ASSERT_TRUE(in.next());
    EXPECT_EQ(in.name(), "Subject");
    EXPECT_EQ(in.value(), "a b");
    EXPECT_EQ(in.start(), 0U);
    ASSERT_TRUE(in.next());
    EXPECT_EQ(in.name(), " folded") << "a continuation that nobody asked for is a line of its own";
    ASSERT_TRUE(in.next());
    EXPECT_EQ(in.name(), "To ");
    ASSERT_TRUE(in.next());
    EXPECT_EQ(in.name(), "");
    EXPECT_EQ(in.value(), "y");
    ASSERT_TRUE(in.next());
    EXPECT_EQ(in.name(), "last");
    EXPECT_EQ(in.start(), item.size() - 5);
    EXPECT_FALSE(in.next());
    EXPECT_FALSE(in.next());
}

TEST(SavedHeader, ContinuationsLoseOneBlank) {
    const im_Item item = item_of("A: 1\r\n  two\r\n\tthree \r\nB: 2\r\n");
    SavedHeader in(item);
    ASSERT_TRUE(in.next());
    EXPECT_EQ(in.continuation(), " two");
    EXPECT_EQ(in.continuation(), "three ");
    EXPECT_EQ(in.continuation(), std::nullopt);
    ASSERT_TRUE(in.next());
    EXPECT_EQ(in.name(), "B");
    EXPECT_EQ(in.continuation(), std::nullopt);
}

TEST(SavedHeader, JoiningRules) {
    const im_Item item = item_of("A: 1 \r\n  two \r\n\tthree\r\n");
    SavedHeader spaced(item), trimmed(item), appended(item);
    ASSERT_TRUE(spaced.next() && trimmed.next() && appended.next());
    EXPECT_EQ(spaced.space_joined(), "1  two  three");
    EXPECT_EQ(trimmed.space_joined_trimmed(), "1 two three");
    EXPECT_EQ(appended.appended(), "1 two three");
}

TEST(SavedHeader, AContinuationThatDoesNotFitIsLeftOut) {
    struct Row {
        std::size_t first, second;
        bool fits_spaced, fits_appended;
    };
    const Row rows[] = {{500, 522, true, true}, {500, 523, false, true}, {500, 524, false, false}};
    for (const Row& row : rows) {
        const im_Item item =
            item_of("A:" + std::string(row.first, 'a') + "\r\n " + std::string(row.second, 'b') + "\r\n c\r\n");
        SavedHeader spaced(item), appended(item);
        ASSERT_TRUE(spaced.next() && appended.next());
        const std::string with_space = spaced.space_joined();
        EXPECT_EQ(with_space.find('b') != std::string::npos, row.fits_spaced) << row.second;
        if (!row.fits_spaced) {
            EXPECT_TRUE(with_space.ends_with(" c")) << "what fits after it is joined";
        }
        EXPECT_EQ(appended.appended().find('b') != std::string::npos, row.fits_appended) << row.second;
    }
}

TEST(SavedHeader, LongLinesComeInPieces) {
    const im_Item item = item_of("A:" + std::string(1021, 'x') + "B: y\r\n z\r\nC: w\r\n");
    SavedHeader in(item);
    ASSERT_TRUE(in.next());
    EXPECT_EQ(in.value().size(), 1021U);
    EXPECT_EQ(in.continuation(), std::nullopt) << "what follows the piece is no blank";
    ASSERT_TRUE(in.next());
    EXPECT_EQ(in.name(), "B");
    ASSERT_TRUE(in.next());
    EXPECT_EQ(in.name(), "C");
}

TEST(SavedHeader, AnEmptyHeaderHasNoField) {
    const im_Item item = item_of("");
    SavedHeader in(item);
    EXPECT_FALSE(in.next());
}

}  // namespace
