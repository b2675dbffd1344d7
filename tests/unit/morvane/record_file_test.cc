// Record files as foreign bytes: every way in which they can lie is told with its offset, and nothing is believed.
#include "morvane/record_file.h"

#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "er/er.h"
#include "morvane/failure.h"
#include "tf/record.h"

namespace morvane {
namespace {

std::string record(std::int32_t type, std::size_t extra = 0) {
    tf_Record made(type);
    if (extra > 0) made.put_string(16, std::string(extra - 1, 'x'));
    return std::string(made.bytes());
}

std::string wrapped(const std::string& inner) {
    tf_Record made;
    made.assign(inner);
    tf_ChangeToWrapRec(made);
    return std::string(made.bytes());
}

std::string with_size(std::string bytes, std::uint32_t size, std::size_t at = 0) {
    for (int i = 0; i < 4; ++i)
        bytes[at + static_cast<std::size_t>(i)] = static_cast<char>(size >> (24 - 8 * i) & 0xFF);
    return bytes;
}

// "type@position+length" for each record, then what went wrong.
std::string walk(const std::string& bytes) {
    ByteFile file = ByteFile::over(bytes, "F");
    RecordWalker walker(file);
    std::string seen;
    try {
        for (RecordPlace place; walker.next(place);)
            seen += std::string(static_cast<std::size_t>(place.wraps), '<') + std::to_string(place.type) + '@' +
                    std::to_string(place.position) + '+' + std::to_string(place.length) + ' ';
    } catch (const RecordFailure& failure) {
        seen += failure.what();
    }
    return seen;
}

TEST(RecordWalkerTest, TellsWhatIsNoRecord) {
    struct Row {
        std::string bytes;
        std::string expected;
        std::string why;
    };
    const std::string a = record(1100, 4), b = record(39000);
    const Row kRows[] = {
        {"", "", "no records"},
        {a + b, "1100@0+20 39000@20+16 ", "two"},
        {a + b.substr(0, 15), "1100@0+20 F: offset 20: 15 bytes are left, a record has at least 16", "cut in a header"},
        {a.substr(0, 19), "F: offset 0: a record of 20 bytes where 19 are left", "cut in a record"},
        {with_size(a, 0), "F: offset 0: a record that says it has 0 bytes", "a loop for ever"},
        {with_size(a, 15), "F: offset 0: a record that says it has 15 bytes", "smaller than a header"},
        {with_size(a, 0xFFFFFFFF), "F: offset 0: a record of 4294967295 bytes where 20 are left", "4 GiB"},
        {wrapped(a) + b, "<1100@0+20 39000@36+16 ", "wrapped"},
        {wrapped(wrapped(b)), "<<39000@0+16 ", "wrapped twice"},
        {with_size(wrapped(a), 19, 16), "F: offset 16: a wrapped record of 19 bytes in 20", "the inner one is shorter"},
        {with_size(wrapped(a), 21, 16), "F: offset 16: a wrapped record of 21 bytes in 20", "the inner one is longer"},
        {record(34500), "34500@0+16 ", "a wrapper with nothing in it"},
        {"From a@b.c Fri Nov 20 10:00:00 2026\n", "F: offset 0: a record of 1181904749 bytes where 36 are left",
         "mail"},
    };
    for (const Row& row : kRows) EXPECT_EQ(walk(row.bytes), row.expected) << row.why;
}

TEST(RecordWalkerTest, WrapsAreCountedUpToABound) {
    std::string bytes = record(1100, 4);
    for (int i = 0; i < kMostWraps; ++i) bytes = wrapped(bytes);
    EXPECT_EQ(walk(bytes), std::string(kMostWraps, '<') + "1100@0+20 ");
    EXPECT_EQ(walk(wrapped(bytes)), std::string(kMostWraps, '<') + "34500@0+36 ");
}

TEST(RecordWalkerTest, HeadIsBounded) {
    const std::string bytes = record(30700, 1000);
    ByteFile file = ByteFile::over(bytes, "F");
    RecordWalker walker(file);
    RecordPlace place;
    ASSERT_TRUE(walker.next(place));
    EXPECT_EQ(walker.head(place, 100).size(), 100U);
    EXPECT_EQ(walker.head(place).size(), bytes.size());
}

// Each step as its depth, type, "last" (.) and "has something in it" (+).
std::string shape(const std::string& bytes) {
    ByteFile file = ByteFile::over(bytes, "F");
    const RecordOutline found = outline(file);
    std::string text;
    for (const RecordStep& step : found.steps) {
        text += std::string(step.depth, '-') + std::to_string(step.type);
        if (!closes(step.type)) text += (step.parent != 0 ? "+" : "") + std::string(step.last != 0 ? "." : "");
        text += ' ';
    }
    for (const std::string& fault : found.faults) text += "[" + fault + "]";
    if (!found.failure.empty()) text += "{" + found.failure + "}";
    return text;
}

TEST(Outline, KnowsWhatFollows) {
    const std::string h = record(1100), s = record(11100), c = record(30500);
    const std::string p = record(30100), q = record(39000), a = record(30200), z = record(39100);
    struct Row {
        std::string bytes, expected, why;
    };
    const Row kRows[] = {
        {h + s, "1100 11100. ", "flat"},
        {h + p + c + c + q, "1100 30100+. -30500 -30500. 39000 ", "a package"},
        {p + q + h, "30100 39000 1100. ", "an empty package"},
        {p + c + q + h, "30100+ -30500. 39000 1100. ", "something after a package"},
        {a + p + c + q + c + z, "30200+. -30100+ --30500. -39000 -30500. 39100 ", "a package in a group"},
        {a + c + p + c + q + z + s, "30200+ -30500 -30100+. --30500. -39000 39100 11100. ", "the last of a group"},
        {h + q, "1100. 39000 [offset 16: the end of a package or group that was not begun]", "an end too many"},
        {p + c, "30100+. -30500. [offset 0: a package or group that does not end]", "an end missing"},
        {p + c + z, "30100+. -30500. 39100 [offset 32: the end of a group ends a package]", "the wrong end"},
        {h + "xx", "1100. {F: offset 16: 2 bytes are left, a record has at least 16}",
         "what stands before damage counts"},
        {"", "", "nothing"},
    };
    for (const Row& row : kRows) EXPECT_EQ(shape(row.bytes), row.expected) << row.why;
}

TEST(Outline, FaultsAreBoundedAndDepthCostsNothing) {
    std::string ends, starts;
    for (int i = 0; i < 1000; ++i) ends += record(39000);
    for (int i = 0; i < 20000; ++i) starts += record(30100);
    ByteFile file = ByteFile::over(ends, "F");
    EXPECT_EQ(outline(file).faults.size(), RecordOutline::kMostFaults);
    file = ByteFile::over(starts, "F");
    const RecordOutline deep = outline(file);
    EXPECT_EQ(deep.steps.back().depth, 19999U);
    EXPECT_EQ(deep.faults.size(), RecordOutline::kMostFaults);
}

// A file of nothing but the smallest records must not become memory without end.
TEST(RecordWalkerTest, TheNumberOfRecordsIsBounded) {
    std::string bytes;
    const std::string one = record(39100);
    bytes.reserve(one.size() * (kMostRecords + 1));
    for (std::uint64_t i = 0; i < kMostRecords; ++i) bytes += one;
    const auto count = [](const std::string& all) {
        ByteFile file = ByteFile::over(all, "F");
        RecordWalker walker(file);
        std::uint64_t records = 0;
        for (RecordPlace place; walker.next(place);) ++records;
        return records;
    };
    EXPECT_EQ(count(bytes), kMostRecords);
    EXPECT_THROW(count(bytes + one), RecordFailure);
}

TEST(ByteFileTest, ReadsFilesThroughAWindow) {
    char folder[] = "/tmp/record_file_test.XXXXXX";
    ASSERT_NE(::mkdtemp(folder), nullptr);
    const std::string path = std::string(folder) + "/file";
    std::string content;
    for (int i = 0; content.size() < 300'000; ++i) content += std::to_string(i) + ' ';
    std::ofstream(path) << content;
    ByteFile file = ByteFile::open(path);
    EXPECT_EQ(file.size(), content.size());
    for (const std::size_t at :
         {std::size_t{0}, std::size_t{65530}, std::size_t{10}, std::size_t{200'000}, content.size() - 3})
        EXPECT_EQ(file.bytes(at, 100), std::string_view(content).substr(at, 100)) << at;
    EXPECT_EQ(file.bytes(content.size(), 1), "");
    EXPECT_EQ(file.bytes(0, 1 << 20), content) << "more than the window";
    EXPECT_THROW(ByteFile::open(folder), er_Escape) << "a folder";
    EXPECT_THROW(ByteFile::open(path + ".no"), er_Escape);
    EXPECT_THROW(ByteFile::open("/dev/null"), Failure);
    ::unlink(path.c_str());
    ::rmdir(folder);
}

}  // namespace
}  // namespace morvane
