// Subjects of old: text and set in two fields.
#include "inet/legacy_subject.h"

#include <string>

#include <gtest/gtest.h>

namespace {

TEST(LegacySubject, Rows) {
    struct Row {
        const char *subject, *text, *charset, *why;
    };
    const Row rows[] = {
        {"", "", "IA5", "nothing"},
        {"Plain", "Plain", "IA5", "ASCII"},
        {"=?iso-8859-1?q?gr=FCn?=", "gr\xfcn", "ISO8859_1", "as it was encoded"},
        {"=?UTF-8?B?Z3LDvG4=?=", "gr\xc3\xbcn", "UTF8", "by its native name"},
        {"=?koi8-r?q?=C1?= =?koi8-r?q?=C2?=", "\xc1\xc2", "KOI8_R", "two words of one set"},
        {"a =?iso-8859-1?q?=FC?= b", "a \xfc b", "ISO8859_1", "a word among others"},
        {"=?t.61-8bit?q?=C1?=", "\xc1", "T61", "T.61"},
        {"=?x-none?q?=C1?=", "\xc1", "x-none", "a set that nobody knows"},
        {"gr\xfcn", "gr\xfcn", "", "8-bit text that declares nothing"},
    };
    for (const Row& row : rows) {
        const inet_LegacySubjects subject = inet_2047SubjectToLegacies(row.subject);
        EXPECT_EQ(subject.t61Subject, row.text) << row.why;
        EXPECT_EQ(subject.t61SubjCharset, row.charset) << row.why;
    }
}

}  // namespace
