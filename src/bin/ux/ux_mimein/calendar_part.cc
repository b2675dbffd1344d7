// Property and calendar parts: see calendar_part.h.
#include "ux_mimein/calendar_part.h"

#include <fcntl.h>

#include <utility>

#include "ccs/ccs.h"
#include "cust/cust.h"
#include "cvc/cvc.h"
#include "dstring/ascii.h"
#include "er/er.h"
#include "mapi/calendar.h"
#include "mapi/property_xml.h"
#include "mapi/rich_text.h"
#include "mapi/token_reader.h"
#include "mim/content_type.h"
#include "mim/encoded_words.h"
#include "os/os.h"
#include "ux_in/records.h"

namespace {

constexpr std::string_view kPropertyType = "application/ploxen-prop";
constexpr std::string_view kCalendarType = "text/calendar";
constexpr std::int32_t kFirstPropertyCode = 3100, kLastPropertyCode = 3109;
constexpr std::int32_t kCalendarCode = 2191;
constexpr std::int32_t kPlainText = 1167;
constexpr std::int32_t kRichText = 2130;

constexpr int kPropertiesConverted = 1548;
constexpr int kPropertiesNotConverted = 1550;
constexpr int kPartWithoutNumber = 1551;
constexpr int kSharedWarning = 24071;

constexpr std::string_view kPropertiesObject = "MAPI.ObjectProperties";
constexpr std::string_view kSeparatorLine = "\n*~*~*~*~*~*~*~*~*~*\n";
constexpr std::size_t kItemClassAt = 16;  // of a record 11200

bool is_property_part(const ux_LeafPart& leaf) {
    return dstring_starts_ignoring_case(leaf.pszMIMEContentType, kPropertyType) ||
           (leaf.lQNFileCode >= kFirstPropertyCode && leaf.lQNFileCode <= kLastPropertyCode);
}

bool is_calendar(const ux_LeafPart& leaf) {
    return dstring_starts_ignoring_case(leaf.pszMIMEContentType, kCalendarType) || leaf.lQNFileCode == kCalendarCode;
}

// Calendars are UTF-8 (RFC 5545, section 3.1.4), but a label may say otherwise. Text that is not of the set that its
// label names is left to the calendar reader, which takes any bytes.
std::string to_utf8(std::string text, std::string_view set) {
    if (set.empty() || ccs_same_set(set, kUtf8Set) || ccs_same_set(set, kAsciiSet)) return text;
    std::string converted;
    return cvc_is_usable(cvc_ConvertString(text, set, kUtf8Set, converted)) ? std::move(converted) : std::move(text);
}

void convert_calendar(const ux_MimePart& entity, const ux_LeafPart& leaf, ux::PropertyPart& found) {
    auto text = ux_CnvFileToString(leaf.item);
    if (!text) return;
    const std::string subject = mim_DecodeMimeCharStr(entity.pRfc2047subject, kUtf8Set);
    auto calendar = mapi_IcalToPnProps(to_utf8(*std::move(text), leaf.QNCharSet), subject, 1);
    if (!calendar) return;
    found.pPnPropsXml = std::move(calendar->pPnPropsXml);
    found.pTextDescription = std::move(calendar->pTextDescription);
    found.attachCount = calendar->attachCount;
}

// What a calendar means for the text before it in an alternative group.
void settle_alternative(ux_MimeConversion& conversion, const ux_MimePart& entity, const ux::PropertyPart& found) {
    const ux_MimeState& state = ux_mime_state();
    if (state.icalPartAlternativePos == 0) return;
    if (found.pPnPropsXml.empty()) {
        ux_InMarkPrevPartHidden(conversion.TfHandle, state.icalPartAlternativePos, conversion.hidden);
        return;
    }
    if (found.pTextDescription.empty() || state.pFirstTxtPartFName.is_null() || entity.partNumber != 2 ||
        ccs_Is7BitAscii(found.pTextDescription))
        return;
    uxm_ReplacePoorTxtAltOfCalendar(conversion, {.first_text_part = state.pFirstTxtPartFName,
                                                 .description = found.pTextDescription,
                                                 .attachCount = found.attachCount,
                                                 .rfc2047subject = entity.pRfc2047subject});
}

// Does one attached file, and no other, belong to the records from a position on? Records and files go together, so
// that only then one record can take their place.
bool describes_one_file(tf_File& file, std::int64_t position) {
    int files = 0;
    tf_RecordHead head;
    tf_GotoRecord(file, position);
    while (file.read_head(head))
        if (head.type == TFREC_content_file_type) ++files;
    return files == 1;
}

// A content-file record of what was made from a description.
tf_Record description_record(std::int32_t code, std::string_view content, std::string_view subject) {
    TFREC_content_file file;
    tf_initTFREC_content_file(file, code);
    file.fileSize = ux::file_size_field(content.size());
    file.rfc2047subject = subject;
    if (code == kPlainText) {
        file.pContentCharset = kUtf8Set;
        file.pMIMEContentType = mim_InsertNewCSName("text/plain", kUtf8Set);
    }
    tf_Record record;
    tf_ContentFileRecFromStruc(record, file);
    return record;
}

void attach_description(ux_MimeConversion& conversion, const ux_MimePart& entity, const ux::PropertyPart& properties) {
    const std::string text = mapi_makeRtfFromUtf8Description(properties.pTextDescription, properties.attachCount);
    im_Item item = im_CrNewDataItem();
    item.write(text);
    Msg_AttachFile(conversion.MsgHandle, std::move(item));
    tf_AppendRecord(conversion.TfHandle, description_record(kRichText, text, entity.pRfc2047subject));
}

void convert_part(ux_MimeConversion& conversion, const ux_MimePart& entity, const ux_LeafPart& leaf,
                  const ux::PropertyPart& properties) {
    std::string xml = properties.pPnPropsXml;
    if (!properties.gotIcalBody) xml = ux_CnvFileToString(leaf.item).value_or("");
    const std::int64_t bytes = ux_ConvertPloxenProps(conversion.TfHandle, xml, entity.AtTopLevel, entity.tfDistListPos);
    if (bytes > 0) conversion.moved(entity.tfDistListPos, bytes);
    if (!properties.pTextDescription.empty() && ux_mime_state().makeIcalBPDesc)
        attach_description(conversion, entity, properties);
}

// The property records of a message, in a file of their own. Whether an encapsulated message has any is its affair:
// they would be wrapped.
void write_properties(tf_File& records, const MSGSTORE_MAPI_INFO& info, const im_Item& tnef, bool wrap) {
    if (!info.itemClass.empty()) {
        tf_Record record(TFREC_item_class);
        record.put_string(kItemClassAt, info.itemClass);
        if (wrap) tf_ChangeToWrapRec(record);
        tf_AppendRecord(records, record);
    }
    mp_PutObjectFile(kPropertiesObject, tnef, records, 1, wrap);
    const auto put = [&](std::uint32_t flags1, std::uint32_t flags2, const std::string& text, bool relations) {
        if (text.empty() && flags1 == 0 && flags2 == 0) return;
        mp_PutMAPIPropsData(static_cast<std::int32_t>(flags1), static_cast<std::int32_t>(flags2), text, records, 1,
                            wrap, relations);
    };
    put(info.flags1, info.flags2, info.listProps, false);
    put(info.relFlags, 0, info.relProps, true);
}

// False: they could not be made, which is logged.
bool make_records(tf_File& records, std::string_view xml, bool wrap) {
    try {
        im_Item tnef = im_create(im_Domain::temporary, kScratchItem);
        const MSGSTORE_MAPI_INFO info = mapi_CreateMapiInfoFromXml(xml, tnef);
        write_properties(records, info, tnef, wrap);
        return true;
    } catch (const er_Escape& escape) {
        er_LogMsg(5, kGatewayGroup, kPropertiesNotConverted, escape.detail());
        er_Accept(5);
        return false;
    }
}

}  // namespace

namespace ux {

PropertyPart find_properties(ux_MimeConversion& conversion, const ux_MimePart& entity, const ux_LeafPart& leaf) {
    PropertyPart found;
    ux_MimeState& state = ux_mime_state();
    if (state.havePnPropsForMsg || entity.tfDistListPos < 0) return found;
    const bool is_properties = is_property_part(leaf);
    found.GotPloxenMapiProps = is_properties && have_properties_module();  // without it nothing is lost
    if (is_properties || state.IcalNowAttachment || !is_calendar(leaf) || !cust_GetBoolean("INET_ICAL_2_MAPI", true))
        return found;
    convert_calendar(entity, leaf, found);
    settle_alternative(conversion, entity, found);
    found.gotIcalBody = found.GotPloxenMapiProps = !found.pPnPropsXml.empty();
    state.pFirstTxtPartFName = {};
    return found;
}

bool dispose_of_properties(ux_MimeConversion& conversion, const ux_MimePart& entity, ux_LeafPart& leaf,
                           const PropertyPart& properties) {
    if (entity.partNumber > 0)
        convert_part(conversion, entity, leaf, properties);
    else
        er_LogMsg(5, kGatewayGroup, kPartWithoutNumber);
    ux_mime_state().makeIcalBPDesc = true;
    if (cust_PresentAndTrue("UXI_RETAIN_PLOXEN_PROPS")) return true;
    leaf.item.unlink();
    er_LogMsg(11, kGatewayGroup, kPropertiesConverted, leaf.pszMIMEContentType, leaf.rfc2047subject);
    return false;
}

}  // namespace ux

std::optional<std::string> ux_CnvFileToString(const im_Item& item) {
    const er_Trace trace("ux_CnvFileToString");
    if (item.size() > kLargestTextFile) {
        er_LogMsg(5, kSharedGroup, kSharedWarning, "Part too large to be converted: ", std::to_string(item.size()),
                  " bytes");
        return std::nullopt;
    }
    try {
        std::string text(static_cast<std::size_t>(item.size()), '\0');
        text.resize(item.read(0, text.data(), text.size()));
        return text;
    } catch (const er_Escape&) {
        er_Accept(5);
        return std::nullopt;
    }
}

void uxm_ReplacePoorTxtAltOfCalendar(ux_MimeConversion& conversion, const ux_TextAlternative& alternative) {
    const er_Trace trace("uxm_ReplacePoorTxtAltOfCalendar");
    if (ccs_Is7BitAscii(alternative.description)) return;
    const std::string path = im_ItemRef2FName(alternative.first_text_part);
    const auto text = mapi_FileToString(path);
    if (!text || text->find(kSeparatorLine) == std::string::npos) return;
    const std::int64_t position = ux_mime_state().icalPartAlternativePos;
    if (!describes_one_file(conversion.TfHandle, position)) return;
    // Nothing of the old text stays: the separator only tells that a mailer made it.
    const bool plain = alternative.attachCount < 1;
    const std::string content =
        plain ? std::string(alternative.description)
              : mapi_makeRtfFromUtf8Desc_dstring(alternative.description, alternative.attachCount);
    os_Fd file = os_open(path, O_WRONLY | O_TRUNC);
    os_write_all(file.get(), content);
    file.close_checked();
    tf_GotoRecord(conversion.TfHandle, position);
    tf_Trunc2NextRec(conversion.TfHandle);
    conversion.hidden.cut_at(position);
    tf_AppendRecord(conversion.TfHandle,
                    description_record(plain ? kPlainText : kRichText, content, alternative.rfc2047subject));
}

std::int64_t ux_ConvertPloxenProps(tf_File& TFHandle, std::string_view pFileData, bool, std::int64_t tfDistListPos) {
    const er_Trace trace("ux_ConvertPloxenProps");
    if (pFileData.empty() || tfDistListPos == -1) return 0;
    ux_MimeState& state = ux_mime_state();
    state.havePnPropsForMsg = true;
    tf_File records = tf_CreateFile();
    if (!make_records(records, pFileData, state.msgNestLevel > 1)) return 0;
    return tf_InsertRecords(TFHandle, tfDistListPos, records);
}
