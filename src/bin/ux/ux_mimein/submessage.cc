// Encapsulated messages: see submessage.h.
#include "ux_mimein/submessage.h"

#include <string>
#include <utility>

#include "er/er.h"
#include "tf/record.h"
#include "ux_mimein/submessage_header.h"

namespace {

class SubMessage : public ux_MimeFrame {
public:
    SubMessage(ux_MimeConversion& conversion, ux_MimePart& entity) : conversion_(conversion), entity_(entity) {}
    ~SubMessage() override { restore(); }

    ux_MimePart* next() override;

private:
    void enter();
    void read_header();
    void close();
    void restore();

    ux_MimeConversion& conversion_;
    ux_MimePart& entity_;
    bool entered_ = false;
    bool inside_ = false;  // the state of the message around it is put aside
    bool havePnPropsForMsg_ = false;
    bool has_body_ = true;
    std::string subject_;
    ux_MimePart body_;
};

ux_MimePart* SubMessage::next() {
    if (!std::exchange(entered_, true)) {
        enter();
        if (has_body_) return &body_;
    }
    close();
    return nullptr;
}

void SubMessage::enter() {
    ux_MimeState& state = ux_mime_state();
    inside_ = true;
    ++state.msgNestLevel;
    havePnPropsForMsg_ = std::exchange(state.havePnPropsForMsg, false);
    read_header();
}

void SubMessage::read_header() {
    const ux_PartMarkers none;
    const ux_PartMarkers& markers = entity_.markers != nullptr ? *entity_.markers : none;
    ux::EncapsulatedHeader header = ux_MimInProcessSubMsgHdr({.TfHandle = conversion_.TfHandle,
                                                              .MsgHandle = conversion_.MsgHandle,
                                                              .GenObjFiles = conversion_.GenObjFiles,
                                                              .pContentHdrRef = entity_.pContentHdrRef,
                                                              .pszPartMarker = markers.pszPartMarker,
                                                              .pszLastPartMarker = markers.pszLastPartMarker,
                                                              .encoding_limit = 0});  // MIME has no such list
    has_body_ = !header.pEndOfMsg && !header.bNextPart && !header.pbLastPart;
    if (header.pEndOfMsg) conversion_.pbEndOfMsg = true;
    if (header.pbLastPart && entity_.pbLastPart != nullptr) *entity_.pbLastPart = true;
    subject_ = std::move(header.pRfc2047subjectD);
    body_.pRfc2047subject = subject_;
    body_.header.pszSubPartType = std::move(header.pszSubPartType);
    body_.header.pszSubPartEncoding = std::move(header.pszSubPartEncoding);
    body_.bInImmediateMsg = true;
    body_.markers = entity_.markers;
    body_.pbLastPart = entity_.pbLastPart;
}

void SubMessage::close() {
    tf_Record record;
    mp_GenerateEndPackage(record);
    tf_AppendRecord(conversion_.TfHandle, record);
    restore();
}

void SubMessage::restore() {
    if (!std::exchange(inside_, false)) return;
    ux_MimeState& state = ux_mime_state();
    --state.msgNestLevel;
    state.havePnPropsForMsg = havePnPropsForMsg_;
}

}  // namespace

std::unique_ptr<ux_MimeFrame> ux_InParseMimeSubMsg(ux_MimeConversion& conversion, ux_MimePart& part) {
    const er_Trace trace("ux_InParseMimeSubMsg");
    return std::make_unique<SubMessage>(conversion, part);
}
