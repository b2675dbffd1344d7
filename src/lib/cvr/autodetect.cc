// The set of unlabelled text: see autodetect.h.
#include "cvr/autodetect.h"

#include <algorithm>
#include <memory>
#include <optional>

#include "base/base.h"
#include "ccs/ccs.h"
#include "er/er.h"
#include "im/im.h"

namespace {

constexpr std::size_t kBlock = std::size_t{64} << 10;

struct Look {
    std::optional<std::string> detected;
    bool is_8bit = false;
};

Look look_at(const im_Item& item, std::uint64_t rest) {
    const auto block = std::make_unique_for_overwrite<char[]>(kBlock);
    base_Detector detector;
    Look look;
    for (std::uint64_t at = 0; rest > 0;) {
        const std::size_t got = item.read(at, block.get(), std::min<std::uint64_t>(kBlock, rest));
        if (got == 0) break;
        const std::string_view data(block.get(), got);
        look.is_8bit = look.is_8bit || !ccs_Is7BitAscii(data);
        detector.feed(data);
        at += got;
        rest -= got;
    }
    look.detected = detector.result();
    return look;
}

// A set in which 7-bit bytes are all ASCII says nothing about 7-bit text.
bool says_something(const Look& look) {
    if (look.is_8bit) return *look.detected != kAsciiSet;
    const ccs_Descriptor* set = ccs_GetCSDescriptor(*look.detected);
    return set != nullptr && !set->extends_ascii();
}

void add(std::string& names, std::string_view name) {
    if (name.empty() || ccs_same_set(name, kAsciiSet)) return;
    if (!names.empty()) names += ',';
    names += ccs_native_name(name);
}

}  // namespace

cvr_Autodetected cvr_autodetectCS(const im_Item& item, std::int64_t limit, std::string_view subject_charset,
                                  std::string_view profile) {
    const er_Trace trace("cvr_autodetectCS");
    const std::uint64_t bytes = limit < 0 ? item.size() : std::min(item.size(), static_cast<std::uint64_t>(limit));
    const Look look = look_at(item, bytes);
    cvr_Autodetected found{{}, look.is_8bit};
    if (look.detected && says_something(look)) add(found.names, *look.detected);
    if (!look.is_8bit) return found;
    add(found.names, profile);
    add(found.names, subject_charset);
    return found;
}
