// Multiparts: parameters and subtypes.
#include "ux_mimein/multipart.h"

#include <string>

#include <gtest/gtest.h>

#include "tf/record.h"

namespace {

TEST(MultipartParameters, Rows) {
    struct Row {
        std::string_view text;
        const char *boundary, *name, *report, *why;
    };
    const Row rows[] = {
        {"boundary=x", "x", nullptr, nullptr, "plain"},
        {" BOUNDARY = \"a b\" ; Name=n", "a b", "n", nullptr, "quoted, any case, blanks"},
        {"report-type=delivery-status; boundary=y", "y", nullptr, "delivery-status", "a report"},
        {"boundary=x ", "x ", nullptr, nullptr, "blanks at the end of a value belong to it"},
        {"boundary=a=b", "a=b", nullptr, nullptr, "an equals sign in a value"},
        {"boundary=\"a;b\"", "a", nullptr, nullptr, "a value runs to the next semicolon, quoted or not"},
        {"boundary=x; boundary=y", "y", nullptr, nullptr, "the last one holds"},
        {"boundary=\"x", "x", nullptr, nullptr, "a quote that does not end"},
        {"boundary=\"\"", "", nullptr, nullptr, "an empty one is one"},
        {"charset=x; boundary", nullptr, nullptr, nullptr, "others, and a word without a value"},
        {"", nullptr, nullptr, nullptr, "nothing"},
    };
    for (const Row& row : rows) {
        const ux_MultipartParameters parameters = ux_InParseMPParams(row.text);
        EXPECT_EQ(parameters.pszBoundary.value_or("(none)"), row.boundary == nullptr ? "(none)" : row.boundary)
            << row.why;
        EXPECT_EQ(parameters.pszName.value_or("(none)"), row.name == nullptr ? "(none)" : row.name) << row.why;
        EXPECT_EQ(parameters.pszReportType.value_or("(none)"), row.report == nullptr ? "(none)" : row.report)
            << row.why;
    }
}

TEST(MultipartSubtypes, Rows) {
    const ux_MultipartKind alternative = ux_InParseMPSubtype("Alternative", true);
    EXPECT_TRUE(alternative.bStartGrp && alternative.bAlternative && !alternative.bStartPkg);
    const ux_MultipartKind parallel = ux_InParseMPSubtype("PARALLEL", true);
    EXPECT_TRUE(parallel.bStartPkg && parallel.bParallel);
    const ux_MultipartKind is_signed = ux_InParseMPSubtype("signed", true);
    EXPECT_TRUE(is_signed.bStartPkg && is_signed.bSigned);
    EXPECT_EQ(is_signed.PackageFlags, 4);
    const ux_MultipartKind report = ux_InParseMPSubtype("report", false);
    EXPECT_TRUE(report.bReport && !report.bStartPkg && !report.bStartGrp);
    for (const char* other : {"mixed", "related", "digest", "x-unknown", ""}) {
        EXPECT_FALSE(ux_InParseMPSubtype(other, true).bStartPkg) << other << ": a message's own body";
        EXPECT_TRUE(ux_InParseMPSubtype(other, false).bStartPkg) << other << ": a part of another";
    }
}

TEST(EmptyRecords, Types) {
    tf_Record record;
    ux_GenerateStartAltGroup(record);
    EXPECT_EQ(record.type(), 30200);
    ux_GenerateAltGroup(record);
    EXPECT_EQ(record.type(), 39100);
    mp_GenerateEndPackage(record);
    EXPECT_EQ(record.type(), 39000);
    EXPECT_EQ(record.size(), 16U);
}

}  // namespace
