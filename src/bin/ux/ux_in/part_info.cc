// Collecting and reading the part-information list; its grammar is in the header.
#include "ux_in/part_info.h"

#include <algorithm>

#include "er/er.h"
#include "ux_in/charsets.h"

namespace {

constexpr int kEntryTaken = 1511;
constexpr int kNoEntry = 1512;
constexpr int kEntryInvalid = 1516;
constexpr std::size_t kLoggedEntryLimit = 1024;
constexpr int kLargestFilecode = 9999;

// What separates words: header lines are folded, and a fold leaves blanks and tabs behind.
constexpr std::string_view kSpace = " \t\r\n\v\f";

constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

// `text` without its comments; one that is not closed runs to the end.
void copy_without_comments(std::string_view text, std::string& copy) {
    copy.clear();
    while (!text.empty()) {
        const std::string_view plain = text.substr(0, text.find('('));
        copy.append(plain);
        text.remove_prefix(plain.size());
        const std::size_t close = text.find(')');
        text.remove_prefix(close == text.npos ? text.size() : close + 1);
    }
}

// Takes the next entry of the loaded list, without leading white space.
std::string_view take_entry(ux_PartInfoState& state) {
    if (state.pSavedNextPartPtr >= state.pSavedArg.size()) {
        state.pSavedNextPartPtr = std::string::npos;
        return {};
    }
    const std::string_view rest = std::string_view(state.pSavedArg).substr(state.pSavedNextPartPtr);
    std::string_view entry = rest.substr(0, rest.find(','));
    state.pSavedNextPartPtr += std::min(entry.size() + 1, rest.size());
    entry.remove_prefix(std::min(entry.find_first_not_of(kSpace), entry.size()));
    return entry;
}

// Takes the next word of an entry; empty at its end.
std::string_view take_word(std::string_view& entry) {
    entry.remove_prefix(std::min(entry.find_first_not_of(kSpace), entry.size()));
    const std::string_view word = entry.substr(0, entry.find_first_of(kSpace));
    entry.remove_prefix(word.size());
    return word;
}

// The number at the front of `digits`; anything above the largest file code is as good as any other such number.
int file_code(std::string_view digits) {
    int number = 0;
    for (; !digits.empty() && is_digit(digits.front()); digits.remove_prefix(1))
        number = std::min(number * 10 + (digits.front() - '0'), kLargestFilecode + 1);
    return number;
}

// Reads the words of an entry into `info`; false when none of them, or only an impossible one, states a file code.
bool read_entry(std::string_view entry, ux_PartInfo& info) {
    constexpr std::string_view prefix = "fc=";
    bool valid = false;
    for (std::string_view word = take_word(entry); !word.empty(); word = take_word(entry)) {
        if (!word.starts_with(prefix) || word.size() == prefix.size() || !is_digit(word[prefix.size()])) continue;
        const int code = file_code(word.substr(prefix.size()));
        valid = code <= kLargestFilecode;
        info.Filecode = static_cast<std::int16_t>(valid ? code : 0);
        const std::size_t dot = word.find('.');
        info.CharSet = valid && dot != word.npos ? word.substr(dot + 1, kPartCharsetLimit) : std::string_view();
    }
    return valid;
}

void log_entry(std::string_view entry, bool valid, const ux_PartInfo& info) {
    er_LogMsg(valid ? 11 : 5, kGatewayGroup, valid ? kEntryTaken : kEntryInvalid, entry.substr(0, kLoggedEntryLimit),
              "-", info.Keyword, info.Filecode, info.CharSet);
}

// How text of the part is converted. The entry's own set is handed on: an unnamed one of a text code is filled in.
void choose_conversion(ux_PartInfo& info) {
    std::string default_set = ux_charsets().FromCharSet;
    ux_FileConvDetails details = info.found ? ux_InGetFileConvDetails(info.Filecode, info.CharSet, true)
                                            : ux_InGetFileConvDetails(kPlainText, default_set, true);
    info.DoConv = !details.applies;
    info.ToTextCS = std::move(details.OutCharSet);
}

}  // namespace

ux_PartInfoState& ux_part_info() {
    static ux_PartInfoState state;
    return state;
}

void ux_reset_part_info() { ux_part_info() = {}; }

const std::string& ux_InAppendEncodingInfo(std::string_view pArgument, bool Reset) {
    const er_Trace trace("ux_InAppendEncodingInfo");
    std::string& list = ux_part_info().pEncodingList;
    if (Reset) list.clear();
    list.append(pArgument.substr(0, kEncodingListLimit - list.size()));
    return list;
}

ux_PartInfo ux_InGetNextPartInfo(std::optional<std::string_view> pArg) {
    const er_Trace trace("ux_InGetNextPartInfo");
    ux_PartInfoState& state = ux_part_info();
    if (pArg) {
        copy_without_comments(*pArg, state.pSavedArg);
        state.pSavedNextPartPtr = 0;
    }

    ux_PartInfo info;
    info.listed = state.pSavedNextPartPtr < state.pSavedArg.size();
    const std::string_view entry = take_entry(state);
    info.found = !entry.empty();
    if (info.found) {
        const bool valid = read_entry(entry, info);
        log_entry(entry, valid, info);
    } else {
        er_LogMsg(11, kGatewayGroup, kNoEntry);
    }
    choose_conversion(info);
    return info;
}
