// RFC 1154 bodies: see rfc1154.h. Messages inside messages are a stack of levels, not of calls.
#include "ux_uuin/rfc1154.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ccs/ccs.h"
#include "er/er.h"
#include "os/catalog.h"
#include "ux_in/body_part.h"
#include "ux_in/charsets.h"
#include "ux_in/lines.h"
#include "ux_in/nesting.h"
#include "ux_in/part_info.h"
#include "ux_uuin/encoding.h"
#include "ux_uuin/rfc1154_parts.h"
#include "ux_uuin/submessage_header.h"

namespace {

constexpr int kMethodUnknown = 1528;
constexpr int kPartNotDecoded = 1531;
constexpr int kFailureNotice = 1543;
constexpr int kSharedWarning = 24071;

// Of an encapsulated message's list. Continuation lines repeat its first line, so that a list can be far longer than
// the header that it comes from; more than this is no message's list.
constexpr std::size_t kInnerListLimit = std::size_t{16} << 10;

// The entries of one message that have not been taken.
class Entries {
public:
    explicit Entries(std::string list) : list_(std::move(list)) {}
    std::optional<ux_EncodingEntry> take() {
        std::optional<ux_EncodingEntry> entry = ux_InParseEncodingStr(std::string_view(list_).substr(at_));
        at_ = entry ? list_.size() - entry->next.size() : list_.size();
        if (entry) entry->next = {};  // the list may go
        if (at_ == list_.size()) drop();
        return entry;
    }
    void drop() {
        list_ = std::string();
        at_ = 0;
    }
    std::size_t held() const { return list_.size(); }

private:
    std::string list_;
    std::size_t at_ = 0;
};

void keep_whole(const ux_Rfc1154Part& part) {
    er_LogMsg(5, kSharedGroup, kSharedWarning, "Encapsulated message kept whole: it is nested too deep");
    ux::keep_rfc1154_message(part);
}

class Rfc1154Body {
public:
    explicit Rfc1154Body(const ux_Rfc1154Content& content) : content_(content), deepest_(ux::max_depth()) {}
    void convert();

private:
    bool convert_part(const ux_EncodingEntry& entry);
    void after_part(bool decoded);
    void enter(std::string list);
    std::size_t list_limit() const;
    void leave();
    bool too_deep() const { return static_cast<std::int64_t>(levels_.size()) > deepest_; }
    void add_failure_notice();
    ux_Rfc1154Part part(std::int32_t MaxLines) const;

    const ux_Rfc1154Content& content_;
    const std::int64_t deepest_;
    std::vector<Entries> levels_;  // the message's own, then one for each message that is open
    std::size_t held_ = 0;         // bytes of the lists in them
};

void Rfc1154Body::convert() {
    if (content_.pEndOfMsg) return;
    levels_.emplace_back(std::string(content_.pEncoding));
    held_ = levels_.back().held();
    while (!levels_.empty()) {
        Entries& entries = levels_.back();
        held_ -= entries.held();
        const std::optional<ux_EncodingEntry> entry = entries.take();
        held_ += entries.held();
        if (!entry)
            leave();
        else if (entry->pMethod != kMethodMessage || too_deep())
            after_part(convert_part(*entry));
        else if (auto list = ux_InParseRfc1154SubMsg(content_, entry->pNumLines, list_limit()))
            enter(*std::move(list));
        else
            after_part(true);
    }
}

bool Rfc1154Body::convert_part(const ux_EncodingEntry& entry) {
    if (entry.pNumLines == 0) return true;
    const ux_Rfc1154Part next = part(entry.pNumLines);
    switch (entry.pMethod) {
        case kMethodHex: return ux_InParseRfc1154HexFile(next);
        case kMethodUuencode: return ux_InParseRfc1154UUEncode(next);
        case kMethodMessage: keep_whole(next); return true;
        case kMethodText: return ux_InParseRfc1154Text(next, content_.pFromCharSet);
        default:
            er_LogMsg(7, kGatewayGroup, kMethodUnknown);
            levels_.back().drop();
            return true;
    }
}

// The separator between two parts: a blank line, or one that begins with a blank.
void drop_separator() {
    ux_LineReader& input = ux_Input();
    const int next = input.peek();
    if (next != '\n' && next != '\r' && next != ' ') return;
    ux_MailText piece = input.text();
    if (next == '\r' && !piece.is_blank()) return input.unread();  // the line only begins so
    while (!piece.whole) piece = input.text();
}

void Rfc1154Body::after_part(bool decoded) {
    if (!decoded) {
        er_LogMsg(3, kGatewayGroup, kPartNotDecoded);
        add_failure_notice();
    }
    if (decoded && !content_.pEndOfMsg) return drop_separator();
    held_ -= levels_.back().held();
    levels_.back().drop();
}

// What the lists of all open messages hold together is bounded as well; lines of a list that would go beyond it are
// left out, and a message whose list is left out altogether is text, as one without a list is.
void Rfc1154Body::enter(std::string list) {
    held_ += list.size();
    levels_.emplace_back(std::move(list));
}

std::size_t Rfc1154Body::list_limit() const {
    return std::min(kInnerListLimit, kEncodingListLimit - std::min(kEncodingListLimit, held_));
}

void Rfc1154Body::leave() {
    levels_.pop_back();
    if (levels_.empty()) return;
    tf_Record record;
    mp_GenerateEndPackage(record);
    tf_AppendRecord(content_.TfHandle, record);
    after_part(true);
}

ux_Rfc1154Part Rfc1154Body::part(std::int32_t MaxLines) const {
    return {.TfHandle = content_.TfHandle,
            .pRfc2047subject = levels_.size() == 1 ? content_.pRfc2047subject : std::string_view(),
            .MsgHandle = content_.MsgHandle,
            .EndOfMsg = content_.pEndOfMsg,
            .MaxLines = MaxLines};
}

// The catalog's texts are UTF-8; where they are more than ASCII, readers of plain text understand Latin-1.
void Rfc1154Body::add_failure_notice() {
    std::string text(os_MCGetMessage(kFailureNotice)), latin;
    ux_ContentItem notice;
    notice.item = ux_InCreateTextPart();
    notice.FileType = kPlainText;
    notice.CharSet = kAsciiSet;
    std::string_view written = text;
    if (!ccs_Is7BitAscii(text)) {
        const auto converted = ux_InTextCharConverter(text, kUtf8Set, kLatin1Set, latin);
        notice.CharSet = converted ? kLatin1Set : kUtf8Set;
        written = converted.value_or(text);
    }
    notice.item.write(written);
    const ux_Rfc1154Part at = part(kToTheEnd);
    ux::attach_part(at.TfHandle, at.MsgHandle, notice, at.pRfc2047subject);
}

}  // namespace

std::optional<std::string> ux_InParseRfc1154SubMsg(const ux_Rfc1154Content& content, std::int32_t NumLines,
                                                   std::size_t list_limit) {
    const er_Trace trace("ux_InParseRfc1154SubMsg");
    if (NumLines == 0) return std::nullopt;
    ux::EncapsulatedHeader header = ux_UUInProcessSubMsgHdr({.TfHandle = content.TfHandle,
                                                             .MsgHandle = content.MsgHandle,
                                                             .GenObjFiles = content.GenObjFiles,
                                                             .encoding_limit = list_limit});
    content.pEndOfMsg = header.pEndOfMsg;
    if (header.pEndOfMsg) return std::string();
    if (!header.ppEncoding.empty()) return std::move(header.ppEncoding);
    if (NumLines < 0) return "text";
    return std::to_string(std::int64_t{NumLines} - header.nLinesRead) + " text";
}

void ux_InParseRfc1154Content(const ux_Rfc1154Content& content) {
    const er_Trace trace("ux_InParseRfc1154Content");
    Rfc1154Body(content).convert();
}
