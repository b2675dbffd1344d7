// Part-information lists: as many places as there are entries, every value within its bounds, and the same whether the
// list came in one piece or in many.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "ux_in/charsets.h"
#include "ux_in/part_info.h"

namespace {

void require(bool held) {
    if (!held) std::abort();
}

std::vector<ux_PartInfo> entries(std::string_view list) {
    std::vector<ux_PartInfo> all;
    ux_PartInfo info = ux_InGetNextPartInfo(list);
    for (; info.listed; info = ux_InGetNextPartInfo(std::nullopt)) {
        require(all.size() <= list.size());
        all.push_back(info);
    }
    require(!info.found && !ux_InGetNextPartInfo(std::nullopt).listed);
    return all;
}

std::string without_comments(std::string_view list) {
    std::string plain;
    bool comment = false;
    for (const char c : list) {
        if (c == '(') comment = true;
        if (!comment) plain += c;
        if (c == ')') comment = false;
    }
    return plain;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (ux_charsets().FromCharSet.empty()) {
        ux_charsets().FromCharSet = "ISO8859_1";
        ux_charsets().ToLatinCS = "ISO8859_1";
    }
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::vector<ux_PartInfo> whole = entries(text);
    const std::string plain = without_comments(text);
    const auto commas = static_cast<std::size_t>(std::ranges::count(plain, ','));
    require(whole.size() == commas + (plain.empty() || plain.ends_with(',') ? 0 : 1));
    for (const ux_PartInfo& info : whole) {
        require(info.Filecode >= 0 && info.Filecode <= 9999 && info.CharSet.size() <= kPartCharsetLimit);
        require(info.found || (info.Filecode == 0 && info.CharSet.empty()));
        require(info.Keyword.empty());
    }

    const std::string* list = &ux_InAppendEncodingInfo("", true);
    for (std::size_t at = 0; at < size; at += 1 + data[at] % 7)
        list = &ux_InAppendEncodingInfo(text.substr(at, 1 + data[at] % 7), false);
    require(*list == text);
    const std::vector<ux_PartInfo> pieces = entries(*list);
    require(std::ranges::equal(whole, pieces, [](const ux_PartInfo& a, const ux_PartInfo& b) {
        return a.found == b.found && a.Filecode == b.Filecode && a.CharSet == b.CharSet && a.ToTextCS == b.ToTextCS;
    }));
    return 0;
}
