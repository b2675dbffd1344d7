// Leaf parts: see leaf.h.
#include "ux_mimein/leaf.h"

#include <utility>

#include "dstring/ascii.h"
#include "er/er.h"
#include "mim/content_type.h"
#include "ux_in/charsets.h"
#include "ux_in/records.h"
#include "ux_mimein/calendar_part.h"
#include "ux_mimein/disposition.h"
#include "ux_mimein/dist_list.h"
#include "ux_mimein/leaf_part.h"
#include "ux_mimein/part_body.h"
#include "ux_mimein/part_charset.h"
#include "ux_mimein/properties.h"
#include "ux_mimein/subjects.h"
#include "ux_mimein/tnef_part.h"

namespace {

constexpr std::int32_t kListFileType = 1166;
constexpr std::string_view kDefaultType = "text/plain";
constexpr std::string_view kHtmlType = "text/html";

class Leaf {
public:
    Leaf(ux_MimeConversion& conversion, ux_MimePart& entity) : conversion_(conversion), entity_(entity) {}
    void convert();

private:
    void describe();
    void supply_type();
    void map_type();
    void decode();
    bool becomes_properties(bool is_tnef);
    void attach();
    void attach_list();
    void put_header();
    void write_record(std::uint64_t size);

    ux_MimeConversion& conversion_;
    ux_MimePart& entity_;
    ux_LeafPart part_;
    bool is_first_text_ = false;  // the text that a calendar behind it may replace
    ux::PropertyPart properties_;
};

void Leaf::convert() {
    if (entity_.partNumber != 2) ux_mime_state().pFirstTxtPartFName = {};
    describe();
    decode();
    if (part_.lQNFileCode == kListFileType) return attach_list();
    properties_ = ux::find_properties(conversion_, entity_, part_);
    const bool is_tnef = ux::is_expanded_tnef(entity_, part_);
    if (part_.lQNFileCode == ux::kTnefCode && entity_.header.pszSubPartEncoding.empty())
        ux_TryDecodeTnefContent(part_.item);
    ux_SettleCharset(part_);
    ux_ConvertPart(part_);
    if (!becomes_properties(is_tnef)) attach();
}

// Did records and items of other kinds take the part's place? A property part may be kept all the same.
bool Leaf::becomes_properties(bool is_tnef) {
    if (is_tnef) return entity_.mapiPropped = ux::expand_tnef(conversion_, part_);
    entity_.mapiPropped = properties_.GotPloxenMapiProps;
    return entity_.mapiPropped && !ux::dispose_of_properties(conversion_, entity_, part_, properties_);
}

// What the content header says, and what is supplied where it says nothing.
void Leaf::describe() {
    const ux_ContentHeader& header = entity_.header;
    ux_SetDefaultCharset(part_);
    part_.pszMIMEContentType = header.pszSubPartType;
    part_.pOrigFileName = uxm_GetMimeFilename(header.pszSubPartType, header.pszContentDisposition);
    if (header.pszSubPartType.find('/') == std::string::npos) supply_type();
    part_.pszContentDisposition = uxm_ParseContentDisposition(header.pszContentDisposition, conversion_.TfHandle);
    part_.rfc2047subject =
        part_.pOrigFileName.empty() ? std::string(entity_.pRfc2047subject) : ux_InBuildMimeSubject(part_.pOrigFileName);
    map_type();
}

// A part without a type is text, and HTML when its file name says so. An empty default set is no set to supply.
void Leaf::supply_type() {
    const bool is_html = mim_FileExtToQNType(part_.pOrigFileName).value_or(kPlainText) == kHtmlText;
    const bool has_default = !part_.ConfigDefCS.empty();
    part_.Used8bitDefCS = !is_html && has_default;
    part_.pszMIMEContentType =
        mim_InsertNewCSName(is_html ? kHtmlType : kDefaultType, has_default ? part_.ConfigDefCS : kAsciiSet);
}

void Leaf::map_type() {
    mim_QNType mapped = mim_MimeToQNType(part_.pszMIMEContentType, part_.pOrigFileName);
    part_.lQNFileCode = mapped.lQNFileCode;
    part_.QNCharSet = std::move(mapped.QNCharSet);
    if (!part_.QNCharSet.empty() || !ux::is_text_code(part_.lQNFileCode)) return;
    part_.Used8bitDefCS = true;
    ux_RelabelPart(part_, part_.ConfigDefCS);
}

// Whether line ends are those of text is asked of the type as it is written: "Text/plain" keeps its bytes.
void Leaf::decode() {
    part_.item = im_CrNewDataItem();
    is_first_text_ = entity_.partNumber == 1 && dstring_starts_ignoring_case(part_.pszMIMEContentType, kDefaultType);
    const bool nonTextType = !part_.pszMIMEContentType.empty() && !part_.pszMIMEContentType.starts_with("text");
    switch (mim_DecodeMimeFile(part_.item, entity_.header.pszSubPartEncoding, entity_.markers, nonTextType)) {
        case ux_BodyEnd::message: conversion_.pbEndOfMsg = true; break;
        case ux_BodyEnd::last_part: *entity_.pbLastPart = true; break;
        case ux_BodyEnd::next_part: break;
    }
}

void Leaf::attach() {
    const std::uint64_t size = part_.item.size();
    if (is_first_text_) ux_mime_state().pFirstTxtPartFName = part_.item.ref();
    Msg_AttachFile(conversion_.MsgHandle, std::move(part_.item));
    write_record(size);
    put_header();
}

// The decoded text is not attached itself: the list that is read from it is.
void Leaf::attach_list() {
    ux_InSpecialDistList(part_.item, entity_.markers, conversion_.TfHandle, conversion_.MsgHandle);
    part_.item.unlink();
    write_record(0);
    put_header();
}

void Leaf::put_header() {
    if (entity_.pContentHdrRef != nullptr && conversion_.GenObjFiles)
        mp_PutObjectFile("inetContentHeader", *entity_.pContentHdrRef, conversion_.TfHandle, 0, false);
}

void Leaf::write_record(std::uint64_t size) {
    TFREC_content_file file;
    tf_initTFREC_content_file(file, part_.lQNFileCode);
    file.fileSize = ux::file_size_field(size);
    file.pContentCharset = part_.QNCharSet;
    file.pMIMEContentType = part_.pszMIMEContentType;
    file.pContentDisp = part_.pszContentDisposition;
    file.pContentID = entity_.header.szContentID;
    file.pContentLocation = entity_.header.szContentLocation;
    file.pOrigFileName = part_.pOrigFileName;
    file.rfc2047subject = part_.rfc2047subject;
    tf_Record record;
    tf_ContentFileRecFromStruc(record, file);
    tf_AppendRecord(conversion_.TfHandle, record);
}

}  // namespace

void ux_InParseMimeFile(ux_MimeConversion& conversion, ux_MimePart& part) {
    const er_Trace trace("ux_InParseMimeFile");
    Leaf(conversion, part).convert();
}
