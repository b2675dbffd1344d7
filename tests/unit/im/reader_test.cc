// Reading an item in lines, from memory and from a file.
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "im/im.h"
#include "support/home.h"

namespace {

class Reader : public testing::Test {
protected:
    enum class Where { memory, file, both };
    static constexpr Where kEverywhere[] = {Where::memory, Where::file, Where::both};

    // An item of this content, in memory, in a file, or with its second half still in memory.
    static im_Item item_of(std::string_view text, Where where) {
        im_Item item = im_CrNewDataItem();
        const std::size_t placed = where == Where::memory ? 0 : where == Where::file ? text.size() : text.size() / 2;
        item.write(text.substr(0, placed));
        if (where != Where::memory) item.place();
        item.write(text.substr(placed));
        return item;
    }
    static std::vector<std::string> lines(const im_Item& item, std::size_t limit) {
        im_Reader reader(item);
        std::vector<std::string> found;
        while (const auto line = reader.line(limit)) found.emplace_back(*line);
        return found;
    }

    TestHome home_;
};

struct LineRow {
    std::string_view text;
    std::size_t limit;
    std::vector<std::string> lines;
    const char* why;
};

TEST_F(Reader, Lines) {
    const LineRow rows[] = {
        {"", 10, {}, "nothing"},
        {"\n", 10, {"\n"}, "an empty line"},
        {"a", 10, {"a"}, "no line end"},
        {"a\nb\n", 10, {"a\n", "b\n"}, "two lines"},
        {"a\nb", 10, {"a\n", "b"}, "the last without its end"},
        {"a\r\n\r\n", 10, {"a\r\n", "\r\n"}, "CR stays"},
        {"abcd\n", 5, {"abcd\n"}, "just fits"},
        {"abcde\n", 5, {"abcde", "\n"}, "one too long: its end comes alone"},
        {"abcdefghijkl\nm", 5, {"abcde", "fghij", "kl\n", "m"}, "pieces"},
        {"ab\n", 1, {"a", "b", "\n"}, "one byte each"},
        {std::string_view("a\0b\n", 4), 10, {std::string("a\0b\n", 4)}, "a NUL is a byte"},
    };
    for (const LineRow& row : rows)
        for (const Where where : kEverywhere)
            EXPECT_EQ(lines(item_of(row.text, where), row.limit), row.lines)
                << row.why << ", " << static_cast<int>(where);
}

TEST_F(Reader, LinesAcrossBlocksAndTheBorderOfMemory) {
    std::string text;
    std::vector<std::string> expected;
    for (std::size_t n = 0; text.size() < 5 * kKeptInMemory; ++n) {
        expected.push_back(std::string(n * 7919 % 1500, 'x') + std::to_string(n) + '\n');
        text += expected.back();
    }
    for (const Where where : {Where::file, Where::both}) EXPECT_TRUE(lines(item_of(text, where), 4096) == expected);
}

TEST_F(Reader, ALineLongerThanABlock) {
    const std::string text(3 * kKeptInMemory, 'x');
    for (const Where where : kEverywhere) {
        const auto found = lines(item_of(text + "\nend", where), text.size() + 1);
        ASSERT_EQ(found.size(), 2U);
        EXPECT_TRUE(found[0] == text + '\n');
        EXPECT_EQ(found[1], "end");
    }
}

TEST_F(Reader, PeekingSkippingAndSeeking) {
    for (const Where where : kEverywhere) {
        const im_Item item = item_of("one\ntwo\nthree", where);
        im_Reader reader(item);
        EXPECT_EQ(reader.peek(), 'o');
        EXPECT_EQ(reader.position(), 0U);
        EXPECT_EQ(reader.line(10), "one\n");
        EXPECT_EQ(reader.position(), 4U);
        EXPECT_EQ(reader.peek(), 't');
        reader.skip(1);
        EXPECT_EQ(reader.line(10), "wo\n");
        reader.seek(0);
        EXPECT_EQ(reader.line(2), "on");
        reader.seek(8);
        EXPECT_EQ(reader.line(10), "three");
        EXPECT_EQ(reader.peek(), -1);
        EXPECT_EQ(reader.line(10), std::nullopt);
        reader.seek(1000);
        EXPECT_EQ(reader.peek(), -1);
        EXPECT_EQ(reader.line(10), std::nullopt);
        reader.seek(8);
        EXPECT_EQ(reader.line(10), "three") << "and back";
    }
}

TEST_F(Reader, PeekGivesEightBitBytesAsTheyAre) {
    const im_Item item = item_of("\xFF", Where::memory);
    im_Reader reader(item);
    EXPECT_EQ(reader.peek(), 0xFF);
}

TEST_F(Reader, AnEmptyItem) {
    for (const Where where : kEverywhere) {
        const im_Item item = item_of("", where);
        im_Reader reader(item);
        EXPECT_EQ(reader.peek(), -1);
        EXPECT_EQ(reader.line(1), std::nullopt);
    }
}

}  // namespace
