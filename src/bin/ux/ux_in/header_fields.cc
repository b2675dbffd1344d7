// Second pass over a saved header: see header_fields.h. It is a table of actions by token number.
#include "ux_in/header_fields.h"

#include <optional>
#include <utility>

#include "aud/aud.h"
#include "dstring/ascii.h"
#include "mim/mim.h"
#include "ux_in/addresses.h"
#include "ux_in/identifiers.h"
#include "ux_in/recipients.h"

namespace ux {

namespace {

constexpr int kAuditReturnAddress = 56;
constexpr std::size_t kHopDigits = 12;

void set_unless_unchanged(int& field, int value) {
    if (value != kUnchanged) field = value;
}

bool is_true(std::string_view value) { return dstring_equal_ignoring_case(value, "TRUE"); }

}  // namespace

// What is missing here is for take_other() to take.
const std::array<HeaderFields::Action, kTokenKept + 1> HeaderFields::kActions = [] {
    std::array<Action, kTokenKept + 1> actions{};
    actions[kTokenSubject] = &HeaderFields::take_subject_field;
    for (const int token : {kTokenFrom, kTokenTo, kTokenCc, kTokenBcc, kTokenReplyTo, kTokenSender})
        actions[token] = &HeaderFields::take_addresses;
    actions[kTokenHops] = &HeaderFields::take_hops;
    actions[kTokenAutoforwarded] = &HeaderFields::take_autoforwarded;
    actions[kTokenAutoreplied] = &HeaderFields::take_autoreplied;
    actions[kTokenPriority] = &HeaderFields::take_priority;
    actions[kTokenImportance] = &HeaderFields::take_importance;
    actions[kTokenSensitivity] = &HeaderFields::take_sensitivity;
    for (const int token : {kTokenDate, kTokenDeferredDelivery, kTokenReplyBy, kTokenExpiryDate, kTokenLatestDelivery})
        actions[token] = &HeaderFields::take_date;
    for (const int token : {kTokenMessageId, kTokenInReplyTo, kTokenReferences, kTokenObsoletes})
        actions[token] = &HeaderFields::take_identifiers;
    actions[kTokenReturnAddress] = &HeaderFields::take_return_address;
    actions[kTokenTransportId] = &HeaderFields::take_transport_id;
    return actions;
}();

HeaderFields::HeaderFields(const HeaderRules& rules, const Target& target, const im_Item& saved)
    : rules_(rules), target_(target), in_(saved) {}

void HeaderFields::convert() {
    while (in_.next()) {
        row_ = &find_arpa_token(in_.name());
        if (row_->Num == kTokenNone) continue;
        if (const Action action = kActions[row_->Num])
            (this->*action)();
        else
            take_other(row_->Num);
    }
}

void HeaderFields::append(tf_Record& record) {
    if (rules_.wrapped) tf_ChangeToWrapRec(record);
    tf_AppendRecord(target_.TfHandle, record);
}

bool HeaderFields::once(int token) { return !std::exchange(done_[token], true); }

void HeaderFields::append_originator(const std::string& address, MakeRecord make) {
    std::string text(address), name;
    ux_InConvArpaORNToORN(text, name, false);
    make(name, record_);
    append(record_);
}

void HeaderFields::take_subject_field() {
    if (!once(kTokenSubject)) return;
    subject_ = take_subject();
    tf_MakeSubjectRec(record_, row_->TFRec, subject_);
    append(record_);
}

// A list may be folded over any number of lines: it is handed on line by line and never held whole.
void HeaderFields::take_addresses() {
    ux_ArpaListParser list({.TfHandle = target_.TfHandle,
                            .DLHandle = target_.DLHandle,
                            .NameTFRec = row_->TFRec,
                            .WrapMainTfRecs = rules_.wrapped,
                            .pFirstFrom = FirstFrom_,
                            .pSender = Sender822_});
    list.feed(in_.value());
    while (const auto more = in_.continuation()) {
        if (rules_.joined_lists)
            list.feed(" ");
        else
            list.finish();
        list.feed(*more);
    }
    list.finish();
    if (rules_.creator_from_sender && row_->Num == kTokenSender && !Sender822_.empty())
        append_originator(Sender822_, ux_InCreateCreatorRecord);
}

void HeaderFields::take_hops() { update_.HopCount = os_StringToInt(in_.value(), kHopDigits); }

void HeaderFields::take_autoforwarded() {
    if (is_true(in_.value())) update_.Autoforwarded = 1;
}

void HeaderFields::take_autoreplied() {
    if (is_true(in_.value())) update_.Autoreplied = 1;
}

void HeaderFields::take_priority() { set_unless_unchanged(update_.Priority, priority_of(in_.value())); }
void HeaderFields::take_importance() { set_unless_unchanged(update_.Importance, importance_of(in_.value())); }
void HeaderFields::take_sensitivity() { set_unless_unchanged(update_.Sensitivity, sensitivity_of(in_.value())); }

// Until one parses: a date that is none lets a later field of the same kind be tried.
void HeaderFields::take_date() {
    if (done_[row_->Num]) return;
    const std::optional<ux_Date> date = ux_InParseDate(in_.value(), target_.now.zone);
    if (!date) return;
    done_[row_->Num] = true;
    if (row_->Num == kTokenDate) created_ = *date;
    ux_InCreateDateRecord(row_->TFRec, date->GMTTime, date->TimeZone, record_);
    append(record_);
}

// Each line by itself: an identifier does not fold.
void HeaderFields::take_identifiers() {
    const ux_MsgIdTarget ids{.TfHandle = target_.TfHandle,
                             .MsgIdTFRec = row_->TFRec,
                             .pHadMsgId = MsgIdFound_,
                             .pHadReplyId = ReplyIdFound_,
                             .TransportID = TransportID_,
                             .WrapTfRecs = rules_.wrapped,
                             .Envid = target_.Envid};
    ux_InParseMsgIdList(in_.value(), ids);
    while (const auto more = in_.continuation()) ux_InParseMsgIdList(*more, ids);
}

void HeaderFields::take_return_address() {
    if (!once(kTokenReturnAddress)) return;
    std::string address = rules_.joined_return ? in_.space_joined_trimmed() : std::string(in_.value());
    std::string OrigRetAddr;
    ux_InConvArpaORNToORN(address, OrigRetAddr, false);
    ux_InCreateOrigRetRecord(OrigRetAddr, record_);
    if (rules_.audited_return) aud_LogStr(ux_audit().AuditHandle, kAuditReturnAddress, OrigRetAddr);
    append(record_);
}

void HeaderFields::take_transport_id() { TransportID_ = ux_InParseTransportIDList(in_.value()); }

bool HeaderFields::add_default_date() {
    if (done_[kTokenDate]) return false;
    created_ = {static_cast<std::int32_t>(target_.now.seconds), target_.now.zone};
    ux_InCreateDateRecord(TFREC_creation_date, created_.GMTTime, created_.TimeZone, record_);
    append(record_);
    return true;
}

bool HeaderFields::add_default_subject() {
    if (done_[kTokenSubject]) return false;
    subject_.clear();
    tf_MakeSubjectRec(record_, TFREC_subject, "");
    append(record_);
    return true;
}

}  // namespace ux
