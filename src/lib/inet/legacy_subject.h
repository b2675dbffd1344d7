// Subjects as the mail systems of old carry them.
#pragma once

#include <string>
#include <string_view>

struct inet_LegacySubjects {
    std::string t61Subject;      // the text without encoded words, as it was encoded
    std::string t61SubjCharset;  // the native name of the set that it declares; empty: unlabelled 8-bit text
};

// Takes a subject in RFC 2047 form apart for records that carry text and set in two fields.
inet_LegacySubjects inet_2047SubjectToLegacies(std::string_view rfc2047subject);
