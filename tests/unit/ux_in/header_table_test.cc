// The header field table: every row by its name, in any case, and the shared value words.
#include "ux_in/header_table.h"

#include <algorithm>
#include <cctype>
#include <string>

#include <gtest/gtest.h>

#include "dstring/ascii.h"

namespace {

struct FieldRow {
    const char* name;
    int token;
    int record;
};

constexpr FieldRow kRows[] = {
    {"Subject", 1, 11100},
    {"From", 2, 22000},
    {"To", 3, 22100},
    {"MIME-Version", 24, -1},
    {"Sender", 21, 22430},
    {"Cc", 4, 22200},
    {"Content-Type", 27, -1},
    {"Content-Transfer-Encoding", 28, -1},
    {"Return-Path", 31, -1},
    {"Date", 12, 13000},
    {"Disposition-Notification-To", 33, -1},
    {"Return-Receipt-To", 34, -1},
    {"Bcc", 5, 22300},
    {"Reply-To", 6, 22440},
    {"Apparently-To", 3, 22100},
    {"x-ploxen-Hops", 7, 1100},
    {"Autoforwarded", 8, 1100},
    {"Priority", 9, 1100},
    {"X-Priority", 9, 1100},
    {"X-MSMail-Priority", 9, 1100},
    {"Importance", 10, 1100},
    {"Sensitivity", 11, 1100},
    {"Precedence", 29, 1100},
    {"Deferred-Delivery", 13, 14100},
    {"Reply-By", 14, 13600},
    {"Expiry-Date", 15, 13700},
    {"Message-Id", 16, 13100},
    {"In-Reply-To", 17, 13200},
    {"References", 18, 13800},
    {"Obsoletes", 19, 13900},
    {"Autoreplied", 20, 1100},
    {"x-ploxen-Autoreplied", 20, 1100},
    {"Latest-Delivery-Time", 22, 16000},
    {"Originator-Return-Address", 23, 16100},
    {"X-Lucent-Syncmark", 30, 1100},
    {"x-ploxen-Transport-Id", 32, 13100},
    {"Encoding", 25, -1},
    {"x-ploxen-PartInfo", 26, -1},
    {"Content-Disposition", 35, -1},
    {"x-ploxen-Recipient", 36, -1},
    {"x-ploxen-ehlo", 36, -1},
    {"x-ploxen-Anonymous-Message", 36, -1},
    {"x-ploxen-Authenticated-Sender", 36, -1},
    {"x-ploxen-Authentication-Mismatch", 36, -1},
    {"x-ploxen-Originator", 36, -1},
    {"x-ploxen-Submission-Host", 36, -1},
};

TEST(HeaderTable, EveryRowInAnyCase) {
    for (const FieldRow& row : kRows) {
        std::string name = row.name;
        for (const bool upper : {false, true}) {
            EXPECT_EQ(find_arpa_token(name).Num, row.token) << name;
            EXPECT_EQ(find_arpa_token(name).TFRec, row.record) << name;
            std::transform(name.begin(), name.end(), name.begin(), [&](unsigned char c) {
                return static_cast<char>(upper ? std::tolower(c) : std::toupper(c));
            });
        }
    }
}

TEST(HeaderTable, OtherNamesHaveNoRow) {
    for (const char* name : {"", "Subject ", " Subject", "Subjec", "Subjects", "x-ploxen-Foo", "To\xC3"})
        EXPECT_EQ(find_arpa_token(name).Num, kTokenNone) << name;
}

TEST(HeaderTable, PriorityWords) {
    const std::pair<const char*, int> rows[] = {
        {"Urgent", 2},
        {"urgent", 2},
        {"NON-URGENT", 1},
        {"High", 2},
        {"low", 1},
        {"1", 2},
        {"1 (Highest)", 2},
        {"2", 2},
        {"4", 1},
        {"5 (Lowest)", 1},
        {"3", kUnchanged},
        {"Normal", kUnchanged},
        {"", kUnchanged},
        {"0", kUnchanged},
        {"15", 2},
        {"-1", kUnchanged},
        {"Urgently", kUnchanged},
    };
    for (const auto& [value, expected] : rows) EXPECT_EQ(priority_of(value), expected) << value;
}

TEST(HeaderTable, ImportanceAndSensitivityWords) {
    EXPECT_EQ(importance_of("HIGH"), 2);
    EXPECT_EQ(importance_of("Low"), 1);
    EXPECT_EQ(importance_of("Normal"), kUnchanged);
    EXPECT_EQ(importance_of(""), kUnchanged);
    EXPECT_EQ(sensitivity_of("personal"), 1);
    EXPECT_EQ(sensitivity_of("Private"), 2);
    EXPECT_EQ(sensitivity_of("Company-Confidential"), 3);
    EXPECT_EQ(sensitivity_of("COMPANY"), 3);
    EXPECT_EQ(sensitivity_of("secret"), kUnchanged);
}

TEST(HeaderTable, CaseRules) {
    EXPECT_TRUE(dstring_equal_ignoring_case("aZ", "Az"));
    EXPECT_FALSE(dstring_equal_ignoring_case("\xC3\x89", "\xC3\xA9")) << "ASCII letters only";
    EXPECT_FALSE(dstring_equal_ignoring_case("[", "{")) << "letters only";
    EXPECT_TRUE(dstring_starts_ignoring_case("MULTIPART/x", "multipart/"));
    EXPECT_FALSE(dstring_starts_ignoring_case("multi", "multipart/"));
}

}  // namespace
