// Failures in words: see failure.h.
#include "morvane/failure.h"

#include <cerrno>
#include <cstring>

namespace morvane {

std::string told(const er_Escape& escape) {
    if (escape.group() != kSystemGroup) return escape.what();
    if (escape.reason() == EINVAL && !escape.detail().empty()) return escape.detail();  // it says why itself
    const std::string why = escape.reason() == EILSEQ ? "not a sequence of records" : std::strerror(escape.reason());
    return escape.detail().empty() ? why : escape.detail() + ": " + why;
}

}  // namespace morvane
