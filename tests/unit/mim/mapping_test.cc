// The mapping key, and which names come back to us.
#include "mim/mapping.h"

#include <string>

#include <gtest/gtest.h>

#include "dr/dr.h"
#include "support/home.h"
#include "support/log_lines.h"

namespace {

struct Row {
    std::string value;
    bool on;
    const char* directory;
    const char* attribute;
    const char* why;
};

TEST(MappingTest, TheKeyNamesDirectoryAndAttribute) {
    TestHome home;
    const Row rows[] = {
        {"people:mail", true, "people", "mail", "both"},
        {" people : mail ", true, "people", "mail", "blanks around"},
        {"people:a:b", true, "people", "a:b", "the first colon counts"},
        {std::string(65, 'd') + ":mail", true, "dddddddddddddddddddddddddddddddddddddddddddddddddddddddddddddddd",
         "mail", "64 characters of the directory"},
        {"people:" + std::string(21, 'a'), true, "people", "aaaaaaaaaaaaaaaaaaaa", "20 characters of the attribute"},
        {"people", false, "", "", "no attribute"},
        {"people:", false, "", "", "an empty attribute"},
        {":mail", false, "", "", "no directory"},
        {"", false, "", "", "nothing"},
        {"sqlite_x:mail", false, "", "", "a name that no directory can have"},
    };
    for (const Row& row : rows) {
        LogLines log;
        dr_reset();
        home.set_keys("UXI_NAME_MAPPING = \"" + row.value + "\"\n");
        mim_Mapping mapping;
        mapping.DirHandle = dr_OpenDir();
        EXPECT_EQ(mim_ChkMappingConfig("UXI_NAME_MAPPING", mapping), row.on) << row.why;
        EXPECT_EQ(mapping.MapDirName, row.directory) << row.why;
        EXPECT_EQ(mapping.MapAttribId, row.attribute) << row.why;
        EXPECT_EQ(mapping.MapDirHandle != 0, row.on) << row.why;
        EXPECT_EQ(log.count("5 100.24071"), row.on ? 0U : 1U) << row.why;
        EXPECT_EQ(mim_CloseMapDir(mapping.MapDirHandle, mapping.DirHandle), 0);
    }
    dr_reset();
}

TEST(MappingTest, OffWithoutTheKeyOrASession) {
    TestHome home;
    mim_Mapping mapping;
    mapping.DirHandle = dr_OpenDir();
    EXPECT_FALSE(mim_ChkMappingConfig("UXI_NAME_MAPPING", mapping));
    home.set_keys("UXI_NAME_MAPPING = \"people:mail\"\n");
    mapping.DirHandle = dr_CloseDir(mapping.DirHandle);
    EXPECT_FALSE(mim_ChkMappingConfig("UXI_NAME_MAPPING", mapping));
    EXPECT_EQ(mim_CloseMapDir(0, 0), 0);
}

TEST(MappingTest, NamesRouteBackExactlyWhenTheyHaveAnInternetAddressField) {
    EXPECT_TRUE(mim_RoutableToUnix("/DD.RFC-822=u(a)x.org"));
    EXPECT_TRUE(mim_RoutableToUnix("/CN=Bob/DD.RFC-822=u(a)x.org/IA=u@x.org"));
    EXPECT_FALSE(mim_RoutableToUnix("/S=Bob/IA=u@x.org"));
    EXPECT_FALSE(mim_RoutableToUnix("/CN=\\/DD.RFC-822=x"));
    EXPECT_FALSE(mim_RoutableToUnix("/DD.RFC-822="));
    EXPECT_FALSE(mim_RoutableToUnix(""));
}

}  // namespace
