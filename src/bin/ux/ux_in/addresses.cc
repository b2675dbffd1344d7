// Address lists: see addresses.h.
#include "ux_in/addresses.h"

#include <algorithm>
#include <array>

#include "cust/cust.h"
#include "mim/mim.h"
#include "ux_in/recipients.h"
#include "ux_in/records.h"

namespace {

constexpr int kSharedInformation = 24070;

constexpr std::string_view kBlanks = " \t\n\v\f\r";

constexpr bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Characters between a doubtful quote and what follows it. The controls of ISO 2022 text are not among them: they begin
// or end characters of another set.
constexpr bool looked_past(char c) {
    const auto code = static_cast<unsigned char>(c);
    const bool shift = code == 0x0E || code == 0x0F || code == 0x19 || code == 0x1B || code == 0x1D;
    return code >= 1 && code <= 32 && !shift;
}

// Which characters need a step of their own, by state; runs of the others are taken at once.
using Stops = std::array<bool, 256>;
constexpr Stops stops_at(std::string_view characters) {
    Stops stops{};
    for (const char c : characters) stops[static_cast<unsigned char>(c)] = true;
    return stops;
}
constexpr Stops kTextStops = stops_at("\"(,:;");
constexpr Stops kQuotedStops = stops_at("\"\\");
constexpr Stops kCommentStops = stops_at("()");

const char* skip_to(const char* at, const char* end, const Stops& stops) {
    while (at != end && !stops[static_cast<unsigned char>(*at)]) ++at;
    return at;
}

int category_of(std::int32_t NameTFRec) {
    switch (NameTFRec) {
        case TFREC_list_from: return 0;
        case TFREC_list_cc: return 2;
        case TFREC_list_bcc: return 3;
        default: return 1;
    }
}

bool suppression_configured() {
    std::optional<bool>& read = ux_addresses().SuppressFROM;
    if (!read) read = cust_PresentAndTrue("UXI_SUPPRESS_SENDER_FROM");
    return *read;
}

}  // namespace

namespace ux {

void AddressPiece::clear() {
    text_.clear();
    mailbox_ = counted_ = begin_ = end_ = 0;
    mark_ = kNone;
    has_separator_ = has_terminator_ = name_cut_ = false;
}

void AddressPiece::append(std::string_view run) {
    if (run.empty()) return;
    std::size_t first = 0;
    if (end_ == 0) {  // blank so far
        while (first < run.size() && is_blank(run[first])) ++first;
        begin_ = counted_ + first;
    }
    std::size_t last = run.size();
    while (last > first && is_blank(run[last - 1])) --last;
    if (last > first) end_ = counted_ + last;
    counted_ += run.size();

    if (!hold_all_) {
        const std::size_t blanks_held = text_.size() - mailbox_;
        if (first > 0 && blanks_held + first > kBlanksHeld)
            run.remove_prefix(std::min(first, blanks_held + first - kBlanksHeld));
        run = run.substr(0, kHeld + kBlanksHeld - std::min(kHeld + kBlanksHeld, text_.size() - mailbox_));
    }
    text_.append(run);
}

void AddressPiece::separator() {
    if (!hold_all_ && text_.size() > kNameHeld) {
        text_.resize(kNameHeld);
        name_cut_ = true;
    }
    if (text_.empty() || text_.back() != ':') text_.push_back(':');  // it may have been cut off
    mailbox_ = text_.size();
    counted_ = begin_ = end_ = 0;
    mark_ = kNone;
    has_separator_ = true;
    has_terminator_ = false;
}

void AddressPiece::terminator() {
    if (has_terminator_) return;
    has_terminator_ = true;
    terminator_ = text_.size();
    terminator_end_ = end_;
}

void AddressPiece::repair() {
    --counted_;
    if (end_ > 0) --end_;
    if (mark_ != kNone) text_.erase(mark_, 1);
    mark_ = kNone;
}

std::string_view AddressPiece::address() {
    if (empty_group()) {
        text_.resize(mailbox_);
        text_.push_back(';');
        return mim_SpaceTrimming(text_);
    }
    std::string_view mailbox(text_);
    if (has_terminator_) mailbox = mailbox.substr(0, terminator_);
    mailbox.remove_prefix(mailbox_);
    // What is held of a longer one may end in blanks: without them it would pass for a short one.
    return too_long() ? mailbox.substr(std::min(mailbox.find_first_not_of(kBlanks), mailbox.size()))
                      : mim_SpaceTrimming(mailbox);
}

bool AddressPiece::too_long() const {
    if (empty_group())
        return name_cut_ || mim_SpaceTrimming(std::string_view(text_).substr(0, mailbox_)).size() + 1 > kArpaLenOK;
    return length() > kArpaLenOK;
}

const char* AddressScanner::scan(const char* at, const char* end, AddressPiece& piece) {
    if (state_ == State::gap) {
        while (at != end && (*at == ',' || is_blank(*at))) ++at;
        if (at == end) return at;
        state_ = State::text;
    }
    while (at != end && state_ != State::between) {
        const char* const run = at;
        if (state_ == State::text) at = skip_to(at, end, kTextStops);
        if (state_ == State::quoted) at = skip_to(at, end, kQuotedStops);
        if (state_ == State::comment) at = skip_to(at, end, kCommentStops);
        piece.append({run, static_cast<std::size_t>(at - run)});
        if (at != end) step(*at++, piece);
    }
    return at;
}

void AddressScanner::step(char c, AddressPiece& piece) {
    switch (state_) {
        case State::backslash: state_ = c == '\\' ? State::two_backslashes : State::quoted; break;
        case State::two_backslashes:
            if (c != '"') {
                state_ = State::quoted;
                return step(c, piece);
            }
            state_ = State::doubtful_quote;
            break;
        case State::doubtful_quote:
            if (looked_past(c)) break;
            if (c != '<') piece.repair();
            state_ = c == '<' ? State::text : State::quoted;
            return step(c, piece);
        case State::quoted:
            if (c == '\\') {
                piece.mark();
                state_ = State::backslash;
            } else if (c == '"') {
                state_ = State::text;
            }
            break;
        case State::comment:
            if (c == '(') ++depth_;
            if (c == ')' && --depth_ == 0) state_ = State::text;
            break;
        default: return text_step(c, piece);
    }
    piece.append({&c, 1});
}

void AddressScanner::text_step(char c, AddressPiece& piece) {
    if (c == ',') {
        state_ = State::between;
        return;
    }
    if (c == ';') piece.terminator();
    piece.append({&c, 1});
    if (c == ':') piece.separator();
    if (c == '"') state_ = State::quoted;
    if (c == '(') {
        state_ = State::comment;
        depth_ = 1;
    }
}

bool AddressScanner::close(AddressPiece& piece) {
    if (state_ == State::doubtful_quote) piece.repair();
    const bool any = state_ != State::gap && state_ != State::between;
    state_ = State::text;
    return any;
}

}  // namespace ux

ux_AddressState& ux_addresses() {
    static ux_AddressState state;
    return state;
}

void ux_reset_addresses() { ux_addresses() = ux_AddressState(); }

ux_SplitAddress splitAddresses(std::string_view line) {
    ux_SplitAddress split;
    if (line.empty()) return split;
    ux::AddressScanner scanner;
    ux::AddressPiece piece(true);
    const char* const end = line.data() + line.size();
    const char* at = scanner.scan(line.data(), end, piece);
    if (!scanner.ended()) scanner.close(piece);
    while (at != end && (*at == ',' || is_blank(*at))) ++at;
    split.advance = at - line.data();
    split.text = piece.text();
    split.ppGroupSeparator = piece.separator_at();
    split.ppGroupTerminator = piece.terminator_at();
    return split;
}

void ux_ArpaListParser::feed(std::string_view text) {
    if (er_Wanted(12))
        list_.append(text);
    else
        scan(text);
}

void ux_ArpaListParser::finish() {
    if (er_Wanted(12)) {
        er_LogMsg(12, kSharedGroup, kSharedInformation, "ux_InParseArpaList: pArpaORNList='", list_, "'");
        scan(list_);
    }
    if (scanner_.close(piece_)) convert();
    piece_.clear();
    list_.clear();
}

void ux_ArpaListParser::scan(std::string_view text) {
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end) {
        at = scanner_.scan(at, end, piece_);
        if (!scanner_.ended()) return;
        convert();
        piece_.clear();
        scanner_.next();
    }
}

// One address, from its text to its record.
void ux_ArpaListParser::convert() {
    const bool too_long = piece_.too_long();
    const std::string_view text = piece_.address();
    if (text.empty()) return;
    if (too_long)
        er_LogMsg(11, kSharedGroup, kSharedInformation, "ux_InParseArpaList: pArpaORN(too-long)='", text, "'");
    const bool From = target_.NameTFRec == TFREC_list_from, Sender = target_.NameTFRec == TFREC_list_sender;
    if (From && !too_long && target_.pFirstFrom.empty()) target_.pFirstFrom = text;
    if (Sender && !too_long && target_.pSender.empty()) target_.pSender = text;

    address_ = text;
    ux_InConvArpaORNToORN(address_, ORName_, false);
    if (address_.empty() || (From && suppressed(ORName_))) return;
    write(ORName_);
}

// Only the first From that is the envelope sender: a second equal one is kept.
bool ux_ArpaListParser::suppressed(const std::string& ORName) {
    std::string& sender = ux_addresses().ArpaSenderORN;
    if (sender.empty() || ORName != sender || !suppression_configured()) return false;
    sender.clear();
    return true;
}

void ux_ArpaListParser::write(const std::string& ORName) {
    if (target_.NameTFRec == TFREC_reply_to) {  // no header field makes this record; the list of one may
        ux_InCreateReplyToRec(ORName, TfRecord_);
        if (target_.WrapMainTfRecs) tf_ChangeToWrapRec(TfRecord_);
        tf_AppendRecord(target_.TfHandle, TfRecord_);
        return;
    }
    ux_InCreateDistListRec(target_.NameTFRec, ORName, TfRecord_);
    tf_AppendRecord(target_.DLHandle, TfRecord_);
    ux_InUpdateRecipCategory(ORName, category_of(target_.NameTFRec));
}

void ux_InParseArpaList(std::string_view pArpaORNList, const ux_ArpaListTarget& target) {
    ux_ArpaListParser list(target);
    list.feed(pArpaORNList);
    list.finish();
}
