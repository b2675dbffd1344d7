// Encoding fields: see encoding.h.
#include "ux_uuin/encoding.h"

#include <algorithm>
#include <string>

#include "dstring/ascii.h"
#include "er/er.h"
#include "os/os.h"

namespace {

constexpr int kCommentNeverOpened = 1530;

constexpr bool is_blank(char c) { return c == ' ' || c == '\t'; }  // folded lines leave tabs behind
constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }
constexpr bool is_letter(char c) { return dstring_lower(c) >= 'a' && dstring_lower(c) <= 'z'; }

// The first character outside comments that `wanted` takes, npos when there is none; nothing when comments do not pair.
template <class Wanted>
std::optional<std::size_t> find_outside_comments(std::string_view text, const Wanted& wanted) {
    std::size_t depth = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '(') {
            ++depth;
        } else if (text[at] == ')') {
            if (depth == 0) {
                er_LogMsg(7, kGatewayGroup, kCommentNeverOpened);
                return std::nullopt;
            }
            --depth;
        } else if (depth == 0 && wanted(text[at])) {
            return at;
        }
    }
    if (depth > 0) return std::nullopt;
    return std::string_view::npos;
}

// digits blank
std::optional<std::int32_t> take_count(std::string_view& text) {
    const auto* const end = std::ranges::find_if_not(text, is_digit);
    const auto digits = static_cast<std::size_t>(end - text.begin());
    if (digits == 0) return kToTheEnd;
    if (digits == text.size() || !is_blank(text[digits])) return std::nullopt;
    const std::int32_t count = os_StringToInt(text.substr(0, digits), digits);
    text.remove_prefix(digits);
    return count;
}

std::int16_t method_of(const std::string& word) {
    if (word.starts_with("hex")) return kMethodHex;
    if (word.find("uuencode") != std::string::npos) return kMethodUuencode;
    return word == "message" ? kMethodMessage : kMethodText;
}

std::optional<std::int16_t> take_method(std::string_view& text) {
    const std::string_view written = text.substr(0, text.find_first_of(" \t,("));
    if (written.empty() || !is_letter(written.front()) || written.size() > kMethodLimit) return std::nullopt;
    text.remove_prefix(written.size());
    std::string word(written);
    std::ranges::transform(word, word.begin(), dstring_lower);
    return method_of(word);
}

}  // namespace

std::optional<std::string_view> ux_InStripBlankAndComment(std::string_view pInStr) {
    const er_Trace trace("ux_InStripBlankAndComment");
    const auto at = find_outside_comments(pInStr, [](char c) { return !is_blank(c); });
    if (!at || *at == std::string_view::npos) return std::nullopt;
    return pInStr.substr(*at);
}

std::optional<std::string_view> ux_InSkipToComma(std::string_view pInStr) {
    const er_Trace trace("ux_InSkipToComma");
    const auto at = find_outside_comments(pInStr, [](char c) { return c == ','; });
    if (!at) return std::nullopt;
    return pInStr.substr(std::min(*at, pInStr.size()));
}

std::optional<ux_EncodingEntry> ux_InParseEncodingStr(std::string_view pInStr) {
    const er_Trace trace("ux_InParseEncodingStr");
    std::optional<std::string_view> rest = ux_InStripBlankAndComment(pInStr);
    if (!rest) return std::nullopt;
    const std::optional<std::int32_t> count = take_count(*rest);
    if (!count) return std::nullopt;
    rest = ux_InStripBlankAndComment(*rest);
    if (!rest) return std::nullopt;
    const std::optional<std::int16_t> method = take_method(*rest);
    if (!method) return std::nullopt;
    rest = ux_InSkipToComma(*rest);
    if (!rest) return std::nullopt;
    if (!rest->empty()) rest->remove_prefix(1);
    return ux_EncodingEntry{.pNumLines = *count, .pMethod = *method, .next = *rest};
}
