// Headers of messages inside messages: see encapsulated_header.h.
#include "ux_in/encapsulated_header.h"

#include <algorithm>
#include <utility>

#include "dstring/ascii.h"
#include "mim/encoded_words.h"
#include "mim/mim.h"
#include "os/os.h"
#include "ux_in/charsets.h"
#include "ux_in/finishing.h"
#include "ux_in/header_fields.h"
#include "ux_in/header_save.h"
#include "ux_in/recipients.h"
#include "ux_mimein/mail_input.h"
#include "ux_mimein/subjects.h"

namespace ux {

namespace {

constexpr std::int32_t kListFileType = 1166;
constexpr std::int32_t kPackageType = 3;
constexpr std::int32_t kPackageKind = -100;
constexpr std::string_view kMultipart = "multipart/";

bool continues(std::string_view line) { return line.starts_with(' ') || line.starts_with('\t'); }

// First pass. The subject and a multipart's type are needed for records that stand before the fields: they are
// collected on the way.
class EncapsulatedHeaderSaver : public HeaderSaver {
public:
    EncapsulatedHeaderSaver(im_Item& item, const EncapsulatedHeaderKind& kind, const EncapsulatedHeaderTarget& target,
                            EncapsulatedHeader& header)
        : HeaderSaver(item), kind_(kind), target_(target), header_(header) {}

    const std::string& subject() const { return subject_; }
    bool mime_version_seen() const { return mime_version_seen_; }

private:
    enum class Collecting { nothing, subject, content_type };

    ux_MailText read() override;
    bool is_cut_off(const ux_MailText& piece) override;
    std::string_view as_saved(const ux_MailText& piece) const override { return StripCrNl(piece.text); }
    void saved(std::string_view line, const ux_KeywordLine& field, std::uint64_t start) override;
    void join(std::string_view line);
    void begin_field(const ux_KeywordLine& field);

    const EncapsulatedHeaderKind& kind_;
    const EncapsulatedHeaderTarget& target_;
    EncapsulatedHeader& header_;
    Collecting collecting_ = Collecting::nothing;
    std::string subject_;
    bool mime_version_seen_ = false;
};

// A long line comes in pieces; it is one line all the same.
ux_MailText EncapsulatedHeaderSaver::read() {
    const ux_MailText piece = kind_.read();
    if (piece.at_start) ++header_.nLinesRead;
    return piece;
}

// A message that is cut short to its header, as some mailers forward it, may lack the blank line: what follows it is
// not its own (RFC 2046, section 5.1.2).
bool EncapsulatedHeaderSaver::is_cut_off(const ux_MailText& piece) {
    header_.bNextPart = is_boundary_line(piece, target_.pszPartMarker);
    header_.pbLastPart = is_closing_line(piece, target_.pszLastPartMarker);
    return header_.bNextPart || header_.pbLastPart;
}

void EncapsulatedHeaderSaver::saved(std::string_view line, const ux_KeywordLine& field, std::uint64_t /*start*/) {
    if (collecting_ != Collecting::nothing && continues(line)) return join(line.substr(1));
    collecting_ = Collecting::nothing;
    if (field.found && !(kind_.first_line_subject && mime_version_seen_)) begin_field(field);
}

void EncapsulatedHeaderSaver::join(std::string_view line) {
    if (collecting_ == Collecting::content_type) return append_folded(header_.pFullMIMEType, line);
    if (subject_.size() + line.size() + 1 < kFieldLimit) subject_.append(" ").append(line);
}

void EncapsulatedHeaderSaver::begin_field(const ux_KeywordLine& field) {
    const std::string_view value = mim_SpaceTrimming(field.pArgument);
    switch (find_arpa_token(field.pCommand).Num) {
        case kTokenSubject:
            subject_ = value;
            collecting_ = Collecting::subject;
            break;
        case kTokenMimeVersion: mime_version_seen_ = true; break;
        case kTokenContentType:
            if (!kind_.content_fields || !dstring_starts_ignoring_case(value, kMultipart)) break;
            header_.pFullMIMEType = value;
            collecting_ = Collecting::content_type;
            break;
        default: break;
    }
}

constexpr HeaderRules rules_of(const EncapsulatedHeaderKind& kind) {
    return {.wrapped = true,
            .joined_lists = false,
            .joined_return = false,
            .audited_return = false,
            .creator_from_sender = kind.originators};
}

// Second pass.
class EncapsulatedFields : public HeaderFields {
public:
    EncapsulatedFields(const EncapsulatedHeaderKind& kind, const EncapsulatedHeaderTarget& target,
                       EncapsulatedHeader& header, const Target& files, const im_Item& saved, bool mime_version_seen)
        : HeaderFields(rules_of(kind), files, saved),
          kind_(kind),
          encoding_limit_(target.encoding_limit),
          header_(header),
          mime_version_seen_(mime_version_seen) {}
    void finish(std::int64_t HeaderPos);

private:
    std::string take_subject() override;
    void take_other(int token) override;
    void take_encoding();
    std::string folded();
    void append_chosen_originator();

    const EncapsulatedHeaderKind& kind_;
    const std::size_t encoding_limit_;
    EncapsulatedHeader& header_;
    const bool mime_version_seen_;
};

// The subject without encoded words, in the set of mail; as it was when that set lacks some of its characters, which
// would be question marks there.
std::string decoded_subject(std::string_view subject) {
    std::string decoded = mim_DecodeMimeCharStr(subject, ux_charsets().FromCharSet);
    const bool complete = std::ranges::count(decoded, '?') == std::ranges::count(mim_DecodeMimeCharStr(subject), '?');
    return complete ? decoded : std::string(subject);
}

// RFC 1154 systems show one line: the continuation lines are read, and left.
std::string EncapsulatedFields::take_subject() {
    const std::string joined = in_.space_joined();
    if (!kind_.first_line_subject) return ux_InBuildMimeSubject(joined);
    if (!mime_version_seen_) return ux_InBuildMimeSubject(in_.value());
    return ux_InBuildMimeSubject(decoded_subject(in_.value()));
}

// Of the receipts, marks and dispositions that a message's own header has, nothing is acted upon inside another.
void EncapsulatedFields::take_other(int token) {
    if (token == kTokenEncoding) take_encoding();
    if (!kind_.content_fields) return;
    if (token == kTokenContentType) header_.pszSubPartType = folded();
    if (token == kTokenTransferEncoding) header_.pszSubPartEncoding = folded();
}

// A continuation line adds the first line's value once more, not its own: what has been sent this way for years is
// read this way.
void EncapsulatedFields::take_encoding() {
    std::string& list = header_.ppEncoding;
    do {
        if (list.size() + in_.value().size() <= encoding_limit_) list.append(in_.value());
    } while (in_.continuation());
}

std::string EncapsulatedFields::folded() {
    std::string value(in_.value());
    while (const auto more = in_.continuation()) append_folded(value, *more);
    return value;
}

void EncapsulatedFields::append_chosen_originator() {
    for (const std::string* address : {&Sender822_, &FirstFrom_})
        if (!ux_IsNullName(*address, nullptr)) return append_originator(*address, ux_InCreateP2OriginatorRecord);
}

void EncapsulatedFields::finish(std::int64_t HeaderPos) {
    if (kind_.originators) append_chosen_originator();
    add_default_date();
    add_default_subject();
    header_.pRfc2047subjectD = std::move(subject_);
    if (!kind_.flags_written) return;
    if (ReplyIdFound_) update_.MsgType = 1;
    update_.HeaderPos = HeaderPos;
    if (update_.any()) ux_InUpdateHeaderRecord(target_.TfHandle, update_);
}

// The records that open the package; returns where its header record stands.
std::int64_t open_package(tf_File& TfHandle, std::string_view subject, std::string_view pFullMIMEType) {
    TFREC_start_package package;
    tf_initTFREC_start_package(package, kPackageType, kPackageKind);
    package.rfc2047subject = ux_InBuildMimeSubject(subject);
    tf_Record record;
    tf_ST_PKG_from_Struc(record, package);
    tf_AppendRecord(TfHandle, record);
    ux_InCreateHeaderRecord(0, 0, true, pFullMIMEType, record);
    tf_ChangeToWrapRec(record);
    tf_AppendRecord(TfHandle, record);
    return tf_MarkPrevRecord(TfHandle);
}

// Attaches the list behind a content-file record of its own; returns where that stands.
std::int64_t attach_list(const EncapsulatedHeaderTarget& target, tf_File& DLHandle, std::string_view subject) {
    ux_InUpdateDistListCounts(DLHandle);
    TFREC_content_file file;
    tf_initTFREC_content_file(file, kListFileType);
    file.rfc2047subject = subject;
    tf_Record record;
    tf_ContentFileRecFromStruc(record, file);
    tf_AppendRecord(target.TfHandle, record);
    const std::int64_t position = tf_MarkPrevRecord(target.TfHandle);
    Msg_AttachFile(target.MsgHandle, DLHandle.release_item());
    return position;
}

}  // namespace

EncapsulatedHeader convert_encapsulated_header(const EncapsulatedHeaderKind& kind,
                                               const EncapsulatedHeaderTarget& target) {
    const os_Moment now = os_Date();
    EncapsulatedHeader header;
    im_Item saved = im_CrNewDataItem();
    EncapsulatedHeaderSaver saver(saved, kind, target, header);
    header.pEndOfMsg = saver.run();

    const std::int64_t HeaderPos = open_package(target.TfHandle, saver.subject(), header.pFullMIMEType);
    tf_File DLHandle = create_list_file(true);
    EncapsulatedFields fields(kind, target, header, {target.TfHandle, DLHandle, "", now}, saved,
                              saver.mime_version_seen());
    fields.convert();
    fields.finish(HeaderPos);

    if (target.GenObjFiles) {
        mp_PutObjectFile("inetMessageHeader", saved, target.TfHandle, 1, true);
        if (target.pContentHdrRef != nullptr)
            mp_PutObjectFile("inetContentHeader", *target.pContentHdrRef, target.TfHandle, 1, true);
    }
    header.pTfDistListPos = attach_list(target, DLHandle, header.pRfc2047subjectD);
    return header;
}

}  // namespace ux
