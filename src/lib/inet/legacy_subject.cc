// Subjects of old: see legacy_subject.h.
#include "inet/legacy_subject.h"

#include <utility>

#include "er/er.h"
#include "mim/encoded_words.h"

inet_LegacySubjects inet_2047SubjectToLegacies(std::string_view rfc2047subject) {
    const er_Trace trace("inet_2047SubjectToLegacies");
    mim_DecodedText decoded = mim_2047_to_string_and_cset_dstring(rfc2047subject);
    return {std::move(decoded.text), std::move(decoded.charset)};
}
