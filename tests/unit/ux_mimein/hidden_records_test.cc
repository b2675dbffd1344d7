// Hiding what a better alternative replaces: what is marked, that marking again changes nothing, and that remembering
// what is marked never changes what is.
#include "ux_mimein/hidden_records.h"

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tf/file.h"

namespace {

std::string types_and_flags(tf_File& file) {
    std::string seen;
    tf_Record record;
    tf_UnreadFile(file);
    while (tf_ReadRecord(file, record)) {
        seen += std::to_string(record.type());
        if (record.type() == TFREC_content_file_type) seen += ":" + std::to_string(record.get32(24));
        if (record.type() == TFREC_start_package_type)
            seen += ":" + std::to_string(tf_ST_PKG_to_Struc(record).pkgFlags);
        seen += ' ';
    }
    return seen;
}

void append_content(tf_File& file) {
    TFREC_content_file content;
    tf_initTFREC_content_file(content, 1167);
    content.contentFlags = 2;
    tf_Record record;
    tf_ContentFileRecFromStruc(record, content);
    tf_AppendRecord(file, record);
}

void append_package(tf_File& file) {
    TFREC_start_package package;
    tf_initTFREC_start_package(package, 3, -100);
    package.latinSubject = "s";
    package.pkgFlags = 4;
    tf_Record record;
    tf_ST_PKG_from_Struc(record, package);
    tf_AppendRecord(file, record);
}

TEST(Hiding, ContentBeforeAPackageAndEveryPackage) {
    tf_File file = tf_CreateFile();
    ux::HiddenRecords hidden;
    append_content(file);
    const std::int64_t from = file.end();
    append_content(file);
    append_content(file);
    append_package(file);
    append_content(file);
    append_package(file);
    ux_InMarkPrevPartHidden(file, from, hidden);
    EXPECT_EQ(types_and_flags(file), "30500:2 30500:35 30500:35 30100:28 30500:2 30100:28 ");
    ux_InMarkPrevPartHidden(file, from, hidden);
    EXPECT_EQ(types_and_flags(file), "30500:2 30500:35 30500:35 30100:28 30500:2 30100:28 ") << "twice is once";
}

TEST(Hiding, APackageBeforeWhatIsMarkedAlreadyKeepsTheRest) {
    tf_File file = tf_CreateFile();
    ux::HiddenRecords hidden;
    append_package(file);
    const std::int64_t inner = file.end();
    append_content(file);
    ux_InMarkPrevPartHidden(file, inner, hidden);
    append_content(file);
    ux_InMarkPrevPartHidden(file, 0, hidden);
    EXPECT_EQ(types_and_flags(file), "30100:28 30500:35 30500:2 ") << "content behind a package stays";
}

TEST(Hiding, GoesOverLargeRecordsWithoutReadingThem) {
    tf_File file = tf_CreateFile();
    ux::HiddenRecords hidden;
    append_content(file);
    im_Item large = im_CrNewDataItem();
    large.write(std::string(100'000, 'x'));
    mp_PutObjectFile("inetContentHeader", large, file, 0, false);
    append_package(file);
    ux_InMarkPrevPartHidden(file, 0, hidden);
    EXPECT_EQ(types_and_flags(file), "30500:35 30700 30100:28 ");
}

// What remembers and what starts from nothing each time see the same files, however hiding and growing alternate.
TEST(Hiding, RememberingChangesNothing) {
    for (unsigned seed = 0; seed < 2000; ++seed) {
        std::mt19937 random(seed);
        tf_File remembered = tf_CreateFile(), naive = tf_CreateFile();
        ux::HiddenRecords hidden;
        std::vector<std::int64_t> positions{0};
        for (int step = 0; step < 30; ++step) {
            positions.push_back(remembered.end());
            switch (random() % 4) {
                case 0: append_package(remembered), append_package(naive); break;
                case 1: {
                    const std::int64_t from = positions[random() % positions.size()];
                    ux::HiddenRecords nothing;
                    ux_InMarkPrevPartHidden(remembered, from, hidden);
                    ux_InMarkPrevPartHidden(naive, from, nothing);
                    break;
                }
                default: append_content(remembered), append_content(naive);
            }
        }
        ASSERT_EQ(types_and_flags(remembered), types_and_flags(naive)) << "seed " << seed;
    }
}

TEST(Hiding, AnInnerStretchIsNotLookedAtAgain) {
    tf_File file = tf_CreateFile();
    ux::HiddenRecords hidden;
    append_content(file);
    const std::int64_t inner = file.end();
    append_content(file);
    ux_InMarkPrevPartHidden(file, inner, hidden);
    ux::HiddenRecords::Stretch stretch{};
    ASSERT_TRUE(hidden.take_last(0, stretch));
    EXPECT_EQ(stretch.begin, inner);
    EXPECT_EQ(stretch.end, file.end());
    EXPECT_FALSE(hidden.take_last(0, stretch));
}

TEST(Hiding, StretchesMoveAndAreCutWithTheRecords) {
    ux::HiddenRecords hidden;
    hidden.add({100, 200, false});
    hidden.add({300, 400, true});
    hidden.moved(250, 50);
    hidden.cut_at(420);
    ux::HiddenRecords::Stretch stretch{};
    ASSERT_TRUE(hidden.take_last(0, stretch));
    EXPECT_EQ(stretch.begin, 350);
    EXPECT_EQ(stretch.end, 420);
    EXPECT_TRUE(stretch.has_package);
    hidden.cut_at(100);
    EXPECT_FALSE(hidden.take_last(0, stretch));
}

}  // namespace
