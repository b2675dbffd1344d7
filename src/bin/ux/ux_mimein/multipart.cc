// Multiparts: see multipart.h.
#include "ux_mimein/multipart.h"

#include <algorithm>
#include <utility>

#include "cust/cust.h"
#include "dstring/ascii.h"
#include "er/er.h"
#include "ux_mimein/mail_input.h"
#include "ux_mimein/properties.h"
#include "ux_mimein/report.h"
#include "ux_mimein/signed.h"

namespace {

constexpr int kBoundaryNotUnique = 1428;
constexpr int kSharedWarning = 24071;
constexpr std::int32_t kSignedPackage = 4;
constexpr std::int32_t kNestedPackageType = 3;
constexpr std::int32_t kNestedPackageKind = -100;

std::string_view trim_blanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The text up to `delimiter`, which goes too; delimiters before it are passed over. Deliberately simple: quotes protect
// nothing, and no token is empty.
std::optional<std::string_view> take_token(std::string_view& text, char delimiter) {
    text.remove_prefix(std::min(text.find_first_not_of(delimiter), text.size()));
    if (text.empty()) return std::nullopt;
    const std::string_view token = text.substr(0, text.find(delimiter));
    text.remove_prefix(std::min(token.size() + 1, text.size()));
    return token;
}

// Blanks go from the front of a value only: those at its end belong to it.
std::string parameter_value(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    if (text.starts_with('"')) text.remove_prefix(1);
    return std::string(text.substr(0, text.find('"')));
}

// Read with the first multipart/signed of the process.
bool smime_v2() {
    std::optional<bool>& cached = ux_mime_state().smime_v2;
    if (!cached) cached = cust_PresentAndTrue("SMIME_V2");
    return *cached;
}

bool is_line(const ux_MailText& piece, std::string_view marker) {
    return piece.at_start && piece.whole && !marker.empty() && piece.text == marker;
}

// A closing or next boundary is taken in any case of its letters; the first of a level only as it is.
bool is_line_in_any_case(const ux_MailText& piece, std::string_view marker) {
    return piece.at_start && piece.whole && !marker.empty() && dstring_equal_ignoring_case(piece.text, marker);
}

class Multipart : public ux_MimeFrame {
public:
    Multipart(ux_MimeConversion& conversion, ux_MimePart& entity, std::string_view subtype,
              std::optional<std::string_view> parameters)
        : conversion_(conversion), entity_(entity), subtype_(subtype) {
        if (parameters) parameters_ = std::string(*parameters);
    }

    ux_MimePart* next() override;

private:
    ux_MimePart* step();
    bool enter();
    void check_unique();
    bool convert_report(std::string_view report_type);
    void convert_returned(tf_File& TfHandle, Msg_File& MsgHandle);
    void open();
    bool skip_preamble();
    void finish_part();
    bool start_content();
    bool start_part();
    void close_signed();
    void supersede();
    void close();
    void skip_epilogue();

    bool ended() const { return conversion_.pbEndOfMsg; }
    void save_position(std::int64_t position) {
        lPrevSubPartTFPos_ = position;
        moved_then_ = conversion_.moved_back;
    }
    std::int64_t saved_position() const { return lPrevSubPartTFPos_ + conversion_.moved_back - moved_then_; }
    void append(std::int32_t type);
    void put_object(std::string_view name, const im_Item& item, std::int32_t first, bool wrap);

    ux_MimeConversion& conversion_;
    ux_MimePart& entity_;  // this multipart
    std::string subtype_;
    std::optional<std::string> parameters_;
    std::string subject_;  // of NAME, when there is one
    ux_PartMarkers markers_;
    ux_MultipartKind kind_;
    bool AtTopLevel_ = false;
    bool entered_ = false;
    bool in_part_ = false;
    bool bLastSubPart_ = false;
    int partNumber_ = 0;
    std::int64_t lPrevSubPartTFPos_ = 0;
    std::int64_t moved_then_ = 0;  // conversion_.moved_back when it was saved
    im_Item ContentHdr_;
    ux_MimePart part_;                         // the body part in hand
    std::unique_ptr<ux_SignedEntity> signed_;  // of a multipart/signed: what is read instead
    std::unique_ptr<ux_ReportCopy> Reportfp_;  // of a report that was not converted: what is read instead
};

// Calendar parts that come after the first multipart's end are only stored, unless configured otherwise: those of a
// forwarded message, mostly.
ux_MimePart* Multipart::next() {
    ux_MimePart* const part = step();
    if (part == nullptr && cust_GetBoolean("INET_ICAL_NO_CONV_AFTER_PART_ONE", true))
        ux_mime_state().IcalNowAttachment = true;
    return part;
}

ux_MimePart* Multipart::step() {
    if (!std::exchange(entered_, true)) {
        if (!enter()) return nullptr;
    } else if (std::exchange(in_part_, false)) {
        finish_part();
    }
    const bool more = partNumber_ > 0 ? !bLastSubPart_ : start_content();
    if (more && !ended() && start_part()) return &part_;
    if (signed_) close_signed();
    close();
    skip_epilogue();
    Reportfp_.reset();
    ux_DecrementNesting();
    return nullptr;
}

// Without any parameters nothing is read, and the depth stays one higher: whatever reads next finds this text.
bool Multipart::enter() {
    AtTopLevel_ = ux_IncrementNesting();
    if (!parameters_) return false;
    ux_MultipartParameters parameters = ux_InParseMPParams(*parameters_);
    subject_ = parameters.pszName ? *std::move(parameters.pszName) : std::string(entity_.pRfc2047subject);
    markers_.pszPartMarker = "--" + parameters.pszBoundary.value_or("");
    markers_.pszLastPartMarker = markers_.pszPartMarker + "--";
    check_unique();
    kind_ = ux_InParseMPSubtype(subtype_, entity_.bInImmediateMsg);
    if (convert_report(parameters.pszReportType.value_or(""))) {
        ux_DecrementNesting();
        return false;
    }
    open();
    return true;
}

// A report about a message of ours that is the message itself: one that somebody passes on is only quoted.
bool Multipart::convert_report(std::string_view report_type) {
    const bool own = AtTopLevel_ && ux_mime_state().msgNestLevel == 0 && conversion_.pAckMsgHandle != nullptr;
    if (!kind_.bReport || !own || cust_PresentAndTrue("UXI_NO_CONVERT_REPORTS")) return false;
    ux_ReturnedMessage returned;
    if (conversion_.ConvertEntity != nullptr)
        returned = [this](tf_File& TfHandle, Msg_File& MsgHandle) { convert_returned(TfHandle, MsgHandle); };
    ux_ConvertedReport report = ux_InConvertReport({.pRfc2047subject = subject_,
                                                    .pszPartMarker = markers_.pszPartMarker,
                                                    .pszLastPartMarker = markers_.pszLastPartMarker,
                                                    .pszReportType = report_type,
                                                    .pbEndOfMsg = conversion_.pbEndOfMsg,
                                                    .CreateGMTTime = conversion_.CreateGMTTime,
                                                    .CreateTimeZone = conversion_.CreateTimeZone,
                                                    .ReturnedMessage = returned});
    *conversion_.pAckMsgHandle = std::move(report.pAckMsgHandle);
    *conversion_.pNDNMsgHandle = std::move(report.pNDNMsgHandle);
    Reportfp_ = std::move(report.Reportfp);
    return report.converted;
}

void Multipart::check_unique() {
    const std::string& marker = markers_.pszPartMarker;
    if (entity_.markers == nullptr || entity_.markers->pszPartMarker != marker) return;
    if (cust_PresentAndFalse("UXI_CHECK_UNIQUE_BOUNDARY")) {
        er_LogMsg(5, kSharedGroup, kSharedWarning, "Accept message with non-unique boundary: ", marker);
        return;
    }
    er_LogMsg(5, kSharedGroup, kSharedWarning, "Reject message with non-unique boundary: ", marker);
    er_TracedEscape(kGatewayGroup, kBoundaryNotUnique, marker);
}

// The message that came back is a message inside the report. What it asks for was asked when it was sent.
void Multipart::convert_returned(tf_File& TfHandle, Msg_File& MsgHandle) {
    bool ended = false, last_part = false, ReplyReq = false;
    std::int16_t AckReq = 0;
    ux_MimeConversion conversion{.TfHandle = TfHandle,
                                 .MsgHandle = MsgHandle,
                                 .pbEndOfMsg = ended,
                                 .GenObjFiles = conversion_.GenObjFiles,
                                 .pAckReq = AckReq,
                                 .pReplyReq = ReplyReq};
    ux_MimePart message;
    message.pRfc2047subject = subject_;
    message.header.pszSubPartType = "message/rfc822";
    message.markers = &markers_;
    message.pbLastPart = &last_part;
    conversion_.ConvertEntity(conversion, message);
}

void Multipart::open() {
    if (kind_.bStartPkg) {
        TFREC_start_package package;
        tf_initTFREC_start_package(package, kNestedPackageType, kNestedPackageKind);
        package.rfc2047subject = subject_;
        package.pkgFlags = kind_.PackageFlags;
        package.pMIMEContentType = entity_.header.pszSubPartType;
        tf_Record record;
        tf_ST_PKG_from_Struc(record, package);
        if (kind_.bParallel) tf_SetPkgParallel(record);
        tf_AppendRecord(conversion_.TfHandle, record);
        if (entity_.pContentHdrRef != nullptr) put_object("inetContentHeader", *entity_.pContentHdrRef, 1, true);
    } else if (kind_.bStartGrp) {
        append(TFREC_start_alternatives);
    }
}

bool Multipart::skip_preamble() {
    while (!ended()) {
        const ux_MailText piece = GetMailText();
        if (piece.is_end) conversion_.pbEndOfMsg = true;
        if (is_line(piece, markers_.pszPartMarker)) return true;
    }
    return false;
}

// To the first part; false when there is none to convert.
bool Multipart::start_content() {
    if (!skip_preamble()) return false;
    if (!kind_.bSigned) return true;
    const ux_SignedSource source{markers_, *parameters_};
    if (kind_.bStartPkg)
        signed_ = ux_MimeSignedPart(source);
    else
        ux_MimeAddSigned(conversion_, ux_MimeSignedPart_v2(source, conversion_.pbEndOfMsg));
    return signed_ != nullptr;
}

// The signature, which is the second part, has been read with the whole; of it the header is kept. The end of the copy
// is not the end of the message, unless that was what ended the copy.
void Multipart::close_signed() {
    ux_MimeAddSigned(conversion_, std::move(signed_->SgnItem));
    if (ContentHdr_) put_object("inetContentHeader", ContentHdr_, 0, false);
    ContentHdr_.unlink();
    conversion_.pbEndOfMsg = signed_->isSendmailExhausted;
    signed_.reset();
}

// The Content-Location of the part before is kept: a part without one inherits it. False: it is not to be converted.
bool Multipart::start_part() {
    ++partNumber_;
    ux_MimeState& state = ux_mime_state();
    state.icalPartAlternativePos = 0;
    part_.header.szContentID.clear();
    part_.header.pszSubPartEncoding.clear();
    part_.header.pszContentDisposition.clear();
    part_.header.pszSubPartType = dstring_equal_ignoring_case(subtype_, "Digest") ? "message/rfc822" : "";
    ContentHdr_ = im_CrNewDataItem();
    ux_InParseContentHeader(ContentHdr_, conversion_.pbEndOfMsg, part_.header);
    if (kind_.bAlternative && lPrevSubPartTFPos_ > 0) supersede();
    save_position(tf_MarkNextRecord(conversion_.TfHandle));
    if (kind_.bSigned && partNumber_ > 1) return false;

    part_.pRfc2047subject = subject_;
    part_.markers = &markers_;
    part_.pbLastPart = &bLastSubPart_;
    part_.pContentHdrRef = &ContentHdr_;
    part_.AtTopLevel = AtTopLevel_;
    part_.tfDistListPos = entity_.tfDistListPos;
    part_.partNumber = partNumber_;
    part_.mapiPropped = false;
    in_part_ = true;
    return true;
}

// The last alternative that we know is the best one (RFC 2046, section 5.1.4). Whether a calendar replaces the text
// before it is decided when it has been read.
void Multipart::supersede() {
    ux_MimeState& state = ux_mime_state();
    if (ux_IsPotentialMapiPropsSrcBP(part_.header.pszSubPartType))
        state.icalPartAlternativePos = saved_position();
    else
        ux_InMarkPrevPartHidden(conversion_.TfHandle, saved_position(), conversion_.hidden);
    state.makeIcalBPDesc = false;
}

void Multipart::finish_part() {
    if (part_.mapiPropped) save_position(tf_MarkPrevRecord(conversion_.TfHandle));
    if (entity_.pContentHdrRef != nullptr && kind_.bAlternative && partNumber_ == 1)
        put_object("inetMimeAlternative", *entity_.pContentHdrRef, 0, false);
    ContentHdr_.unlink();
}

void Multipart::close() {
    if (kind_.bStartPkg)
        append(TFREC_end_package);
    else if (kind_.bStartGrp)
        append(TFREC_end_alternatives);
}

// To the enclosing multipart's next part or end; a message's own multipart runs to the end of the message.
void Multipart::skip_epilogue() {
    while (!ended() && !(entity_.pbLastPart != nullptr && *entity_.pbLastPart)) {
        const ux_MailText piece = GetMailText();
        if (piece.is_end) conversion_.pbEndOfMsg = true;
        if (entity_.markers == nullptr) continue;
        if (is_line_in_any_case(piece, entity_.markers->pszPartMarker)) return;
        if (is_line_in_any_case(piece, entity_.markers->pszLastPartMarker)) *entity_.pbLastPart = true;
    }
}

void Multipart::append(std::int32_t type) {
    const tf_Record record(type);
    tf_AppendRecord(conversion_.TfHandle, record);
}

void Multipart::put_object(std::string_view name, const im_Item& item, std::int32_t first, bool wrap) {
    if (conversion_.GenObjFiles) mp_PutObjectFile(name, item, conversion_.TfHandle, first, wrap);
}

}  // namespace

ux_MultipartParameters ux_InParseMPParams(std::string_view pszParams) {
    const er_Trace trace("ux_InParseMPParams");
    ux_MultipartParameters parameters;
    while (const auto token = take_token(pszParams, '=')) {
        const std::string_view name = trim_blanks(*token);
        const auto value = take_token(pszParams, ';');
        if (!value) break;
        if (dstring_equal_ignoring_case(name, "boundary")) parameters.pszBoundary = parameter_value(*value);
        if (dstring_equal_ignoring_case(name, "name")) parameters.pszName = parameter_value(*value);
        if (dstring_equal_ignoring_case(name, "report-type")) parameters.pszReportType = parameter_value(*value);
    }
    return parameters;
}

ux_MultipartKind ux_InParseMPSubtype(std::string_view pszContentSubType, bool bInImmediateMsg) {
    const er_Trace trace("ux_InParseMPSubtype");
    ux_MultipartKind kind;
    if (dstring_equal_ignoring_case(pszContentSubType, "alternative")) {
        kind.bStartGrp = kind.bAlternative = true;
    } else if (dstring_equal_ignoring_case(pszContentSubType, "parallel")) {
        kind.bStartPkg = kind.bParallel = true;
    } else if (dstring_equal_ignoring_case(pszContentSubType, "signed")) {
        kind.bSigned = true;
        kind.bStartPkg = !smime_v2();
        kind.PackageFlags = kind.bStartPkg ? kSignedPackage : 0;
    } else if (dstring_equal_ignoring_case(pszContentSubType, "report")) {
        kind.bReport = true;
    } else {
        kind.bStartPkg = !bInImmediateMsg;
    }
    return kind;
}

void ux_GenerateStartAltGroup(tf_Record& TfRecord) { tf_InitRecord(TfRecord, TFREC_start_alternatives); }
void ux_GenerateAltGroup(tf_Record& TfRecord) { tf_InitRecord(TfRecord, TFREC_end_alternatives); }

std::unique_ptr<ux_MimeFrame> ux_InParseMimeMultiPart(ux_MimeConversion& conversion, ux_MimePart& part,
                                                      std::string_view pszContentSubType,
                                                      std::optional<std::string_view> pszParameters) {
    const er_Trace trace("ux_InParseMimeMultiPart");
    return std::make_unique<Multipart>(conversion, part, pszContentSubType, pszParameters);
}
