// Encoding fields: every entry is within its bounds and takes something of the list, the list goes on where the entry
// says, and comments and blanks ahead of it change nothing.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "ux_uuin/encoding.h"

namespace {

void require(bool held) {
    if (!held) std::abort();
}

using Entries = std::vector<std::tuple<std::int32_t, std::int16_t>>;

Entries entries(std::string_view list) {
    Entries all;
    while (const auto entry = ux_InParseEncodingStr(list)) {
        require(entry->pNumLines >= kToTheEnd && entry->pMethod >= kMethodHex && entry->pMethod <= kMethodMessage);
        require(entry->next.size() < list.size() && list.ends_with(entry->next));
        const std::string_view taken = list.substr(0, list.size() - entry->next.size());
        require(entry->next.empty() || taken.ends_with(','));
        all.emplace_back(entry->pNumLines, entry->pMethod);
        list = entry->next;
    }
    return all;
}

void check_helpers(std::string_view text) {
    if (const auto stripped = ux_InStripBlankAndComment(text)) {
        require(!stripped->empty() && text.ends_with(*stripped));
        require(stripped->front() != ' ' && stripped->front() != '\t' && stripped->front() != '(');
    }
    if (const auto comma = ux_InSkipToComma(text)) {
        require(text.ends_with(*comma) && (comma->empty() || comma->front() == ','));
        require(ux_InSkipToComma(*comma) == comma);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    check_helpers(text);
    const Entries found = entries(text);
    require(found.size() <= size);
    require(entries("\t (a (b), c) " + text) == found);

    Entries more = entries("7 hex(x) y, " + text);
    require(!more.empty() && more.front() == std::tuple(7, kMethodHex));
    more.erase(more.begin());
    require(more == found);
    return 0;
}
