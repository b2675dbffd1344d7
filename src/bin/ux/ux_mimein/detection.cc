// Detection of character sets: see detection.h.
#include "ux_mimein/detection.h"

#include <algorithm>
#include <memory>

#include "base/base.h"
#include "er/er.h"
#include "im/im.h"

namespace {

constexpr std::size_t kLeastSample = 64;
constexpr std::size_t kBlock = std::size_t{64} << 10;

std::optional<std::string> cut(std::optional<std::string> name, std::size_t limit) {
    if (name && name->size() > limit) name->resize(limit);
    return name;
}

// The sample end to end until it holds 64 bytes: at most 126.
std::string stretched(std::string_view sample) {
    std::string text;
    while (text.size() < kLeastSample) text += sample;
    return text;
}

}  // namespace

std::optional<std::string> ux_InAutodetectCharset(std::string_view pData, std::size_t cLen) {
    const er_Trace trace("ux_InAutodetectCharset");
    if (pData.empty()) return std::nullopt;
    if (pData.size() >= kLeastSample) return cut(base_pnDetectAndReport(pData), cLen);
    return cut(base_pnDetectAndReport(stretched(pData)), cLen);
}

std::optional<std::string> ux_InAutodetectCharset(const im_Item& item, int Limit) {
    std::uint64_t rest = item.size();
    if (Limit >= 1) rest = std::min<std::uint64_t>(rest, static_cast<std::uint64_t>(Limit));
    std::string scratch;
    if (rest <= kBlock) return ux_InAutodetectCharset(item.head(static_cast<std::size_t>(rest), scratch));
    const er_Trace trace("ux_InAutodetectCharset");
    const auto block = std::make_unique_for_overwrite<char[]>(kBlock);
    base_Detector detector;
    for (std::uint64_t at = 0; rest > 0;) {
        const std::size_t got = item.read(at, block.get(), std::min<std::uint64_t>(kBlock, rest));
        if (got == 0) break;
        detector.feed({block.get(), got});
        at += got;
        rest -= got;
    }
    return cut(detector.result(), kDetectedNameLimit);
}
