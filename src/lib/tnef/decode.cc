// Expanding TNEF: see decode.h.
//
// A stream is checked as a whole before anything is made of it, so that what follows finds every length in order; then
// it is walked level by level. A level is a message: the stream itself or one embedded in an attachment. Each is looked
// through once for what its records need (a survey), and then its properties, body and attachments are written in
// turn. Levels are frames in a vector.
#include "tnef/decode.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ccs/ccs.h"
#include "cust/cust.h"
#include "cvc/cvc.h"
#include "er/er.h"
#include "inet/address.h"
#include "inet/subject.h"
#include "mapi/names.h"
#include "mapi/property_text.h"
#include "mim/content_type.h"
#include "tf/record.h"
#include "tnef/check.h"
#include "tnef/encode.h"
#include "tnef/format.h"
#include "tnef/legacy.h"
#include "tnef/properties.h"
#include "tnef/rtf.h"
#include "tnef/source.h"
#include "tnef/text.h"

namespace {

constexpr std::int32_t kRtfCode = 2130;
constexpr std::int32_t kTnefCode = 1734;
constexpr std::int16_t kReadReceipt = 7;
constexpr std::int32_t kPackageType = 3;
constexpr std::int32_t kMessagePackage = -100;
constexpr int kDefaultDepth = 10'000;
constexpr std::size_t kTextLimit = 4096;  // bytes in the stream of a subject, a name, a label; what is more is cut
constexpr std::size_t kTextBlock = std::size_t{16} << 10;
constexpr std::int32_t kReferredTo = 4;  // PidTagAttachFlags: the HTML body shows it
constexpr std::string_view kObjectName = "MAPI.ObjectProperties";
constexpr std::string_view kAnyType = "application/octet-stream";

// A text property where it stands.
struct TextPlace {
    tnef_Span span;
    bool is_unicode = false;
};

// What a message's records need to know of it.
struct Survey {
    std::array<std::optional<tnef_Span>, kTnefLegacyRows> legacy;
    std::bitset<kMapiFirstNamed> present;  // identifiers in attMAPIProps
    std::string set = tnef_set_of(kTnefDefaultCodepage);
    std::uint32_t internet_codepage = 0;
    std::optional<TextPlace> message_class, subject, text, html_text;
    std::optional<tnef_Span> html, rtf;
    bool read_receipt = false;
    bool reply = false;
};

// What an attachment's item and record need to know of it.
struct Attachment {
    bool begun = false;
    tnef_Span title;
    tnef_Span data;                     // attAttachData, else the binary or what stands behind the object's interface
    std::optional<tnef_Span> embedded;  // a message
    std::optional<TextPlace> display_name, short_name, long_name, mime_tag, content_id, location;
    std::int32_t flags = 0;
};

// A message on its way into records.
struct Level {
    tnef_Span attributes;  // those that have not been looked at for attachments
    std::string set;
    std::string subject;  // in RFC 2047 form
    Attachment attachment;
};

// CR LF becomes LF, in pieces cut anywhere.
class TextItem {
public:
    explicit TextItem(im_Item& item) : item_(item) {}
    void add(std::string_view text) {
        is_ascii_ = is_ascii_ && ccs_Is7BitAscii(text);
        while (!text.empty()) {
            if (std::exchange(held_, false) && text.front() != '\n') item_.write('\r');
            const std::size_t end = std::min(text.find('\r'), text.size());
            item_.write(text.substr(0, end));
            held_ = end != text.size();
            text.remove_prefix(std::min(end + 1, text.size()));
        }
    }
    void finish() {
        if (std::exchange(held_, false)) item_.write('\r');
    }
    void clear() {
        item_.truncate(0);
        held_ = false;
        is_ascii_ = true;
    }
    bool is_ascii() const { return is_ascii_; }

private:
    im_Item& item_;
    bool held_ = false;
    bool is_ascii_ = true;
};

std::string in_words(std::string_view utf8) { return inet_Subject_toRfc2047_dstring(utf8, kUtf8Set, kShorterMethod); }

// The name that a file has in its folder: senders put whole paths there.
std::string_view base_name(std::string_view name) {
    const std::size_t slash = name.find_last_of("/\\");
    return slash == name.npos ? name : name.substr(slash + 1);
}

// A label of the stream's that is to stand in a field: printable ASCII, or nothing.
std::string clean_label(std::string label) {
    const auto is_bad = [](char c) { return c < 0x20 || c > 0x7E; };
    return std::any_of(label.begin(), label.end(), is_bad) ? std::string() : label;
}

// What the mail system makes itself: no sender's label makes a file of his one of those.
bool is_own_code(std::int32_t code) {
    constexpr std::int32_t address_list = 1166, first_property_part = 3100, last_property_part = 3109;
    return code == address_list || (code >= first_property_part && code <= last_property_part);
}

bool is_text_code(std::int32_t code) {
    return code == kPlainTextCode || code == kOtherSetTextCode || code == kHtmlCode;
}

std::int32_t text_code(std::int32_t code, std::string_view set) {
    if (code == kHtmlCode) return code;
    return set == kAsciiSet || set == kLatin1Set ? kPlainTextCode : kOtherSetTextCode;
}

// Is the item valid UTF-8?
bool is_utf8(const im_Item& item) {
    cvc_Converter converter(kUtf8Set, kUtf8Set);
    std::string scratch, out;
    for (std::uint64_t at = 0; at < item.size(); at += kTextBlock) {
        out.clear();
        if (!converter.convert(item.view(at, kTextBlock, scratch), out)) return false;
    }
    return converter.finish(out);
}

class Expansion {
public:
    Expansion(const im_Item& stream, tf_File& TfHandle, std::size_t depth)
        : source_(stream), size_(stream.size()), TfHandle_(TfHandle), depth_(depth) {}

    void run() {
        enter({0, size_});
        while (!levels_.empty()) step();
    }
    std::vector<im_Item> take_items() { return std::move(items_); }
    bool read_receipt() const { return read_receipt_; }
    bool reply() const { return reply_; }

private:
    bool embedded() const { return levels_.size() > 1; }

    // --- levels -----------------------------------------------------------------------------------------------------

    void enter(tnef_Span stream) {
        const tnef_Cursor attributes = tnef_open_stream(source_, stream);
        Level level;
        level.attributes = {attributes.position(), stream.end};
        const Survey survey = look_through(level.attributes);
        level.set = survey.set;
        level.subject = in_words(subject_of(survey));
        levels_.push_back(std::move(level));
        if (embedded()) {
            put_package();
        } else {
            read_receipt_ = survey.read_receipt;
            reply_ = survey.reply;
        }
        put_properties(survey);
        put_body(survey);
    }

    // One attribute of the innermost message. A new attachment begins with its rendering data.
    void step() {
        Level& level = levels_.back();
        tnef_Cursor attributes(source_, level.attributes);
        tnef_AttributeHead head;
        if (!tnef_next_attribute(attributes, head)) {
            if (level.attachment.begun) return put_attachment(std::exchange(level.attachment, {}));
            return leave();
        }
        level.attributes.begin = attributes.position();
        const auto attribute = static_cast<tnef_Attribute>(head.id);
        if (attribute == tnef_Attribute::attach_rendering_data) {
            const Attachment before = std::exchange(level.attachment, {});
            level.attachment.begun = true;
            if (before.begun) put_attachment(before);
            return;
        }
        look_at_attachment(level.attachment, attribute, head.data);
    }

    void leave() {
        if (embedded()) TfHandle_.append(tf_Record(TFREC_end_package));
        levels_.pop_back();
    }

    void put_package() {
        TFREC_start_package package;
        tf_initTFREC_start_package(package, kPackageType, kMessagePackage);
        package.rfc2047subject = levels_.back().subject;
        tf_Record record;
        tf_ST_PKG_from_Struc(record, package);
        TfHandle_.append(record);
    }

    // --- looking ----------------------------------------------------------------------------------------------------

    Survey look_through(tnef_Span attributes) {
        Survey survey;
        tnef_Cursor in(source_, attributes);
        tnef_AttributeHead head;
        while (tnef_next_attribute(in, head)) {
            const auto attribute = static_cast<tnef_Attribute>(head.id);
            if (const tnef_LegacyRow* row = tnef_find_legacy(head.id))
                survey.legacy[tnef_legacy_index(*row)] = head.data;
            else if (attribute == tnef_Attribute::oem_codepage && head.data.size() >= 4)
                survey.set = tnef_set_of(tnef_Cursor(source_, head.data).take32());
            else if (attribute == tnef_Attribute::mapi_properties)
                each_property(head.data, [&](const tnef_Property& property) { note(survey, property); });
        }
        return survey;
    }

    template <class Work>
    void each_property(tnef_Span list, Work&& work) {
        tnef_Cursor in(source_, list);
        for (std::uint32_t count = in.take32(); count != 0; --count) work(tnef_take_property(in));
    }

    void note(Survey& survey, const tnef_Property& property) {
        const std::uint16_t id = property.head.id;
        if (id >= kMapiFirstNamed || property.head.multiple) return;
        survey.present.set(id);
        switch (id) {
            case kIdMessageClass: return note_text(survey.message_class, property);
            case kIdSubject: return note_text(survey.subject, property);
            case kIdBody: return note_text(survey.text, property);
            case kIdRtfCompressed: return note_binary(survey.rtf, property);
            case kIdHtml: note_text(survey.html_text, property); return note_binary(survey.html, property);
            case kIdReadReceiptRequested: survey.read_receipt = number_of(property) != 0; return;
            case kIdReplyRequested: survey.reply = number_of(property) != 0; return;
            case kIdInternetCodepage:
                survey.internet_codepage = static_cast<std::uint32_t>(number_of(property));
                return;
            default: return;
        }
    }

    void note_text(std::optional<TextPlace>& place, const tnef_Property& property) {
        const bool is_unicode = property.head.type == mapi_Type::unicode;
        if (!is_unicode && property.head.type != mapi_Type::string8) return;
        place = TextPlace{tnef_first_value(source_, property), is_unicode};
    }
    void note_binary(std::optional<tnef_Span>& place, const tnef_Property& property) {
        if (property.head.type == mapi_Type::binary) place = tnef_first_value(source_, property);
    }
    std::int64_t number_of(const tnef_Property& property) {
        if (tnef_width(static_cast<std::uint16_t>(property.head.type)) == 0) return 0;
        return tnef_read_values(source_, property, {}).values.front().number;
    }

    void look_at_attachment(Attachment& attachment, tnef_Attribute attribute, tnef_Span data) {
        switch (attribute) {
            case tnef_Attribute::attach_title: attachment.title = data; break;
            case tnef_Attribute::attach_data:
                if (!data.empty()) attachment.data = data;
                break;
            case tnef_Attribute::attachment:
                each_property(data, [&](const tnef_Property& property) { note(attachment, property); });
                break;
            case tnef_Attribute::attach_create_date:
            case tnef_Attribute::attach_modify_date:
            case tnef_Attribute::attach_meta_file:
            case tnef_Attribute::attach_transport_filename: break;
            default: return;
        }
        attachment.begun = true;
    }

    void note(Attachment& attachment, const tnef_Property& property) {
        if (property.head.multiple) return;
        switch (property.head.id) {
            case kIdAttachData: return note_data(attachment, property);
            case kIdDisplayName: return note_text(attachment.display_name, property);
            case kIdAttachFilename: return note_text(attachment.short_name, property);
            case kIdAttachLongFilename: return note_text(attachment.long_name, property);
            case kIdAttachMimeTag: return note_text(attachment.mime_tag, property);
            case kIdAttachContentId: return note_text(attachment.content_id, property);
            case kIdAttachContentLocation: return note_text(attachment.location, property);
            case kIdAttachFlags: attachment.flags = static_cast<std::int32_t>(number_of(property)); return;
            default: return;
        }
    }

    void note_data(Attachment& attachment, const tnef_Property& property) {
        tnef_Span value = tnef_first_value(source_, property);
        if (property.head.type == mapi_Type::object && value.size() >= kIidSize) {
            mapi_Guid iid;
            const std::string_view bytes = source_.at(value.begin, kIidSize);
            std::copy(bytes.begin(), bytes.end(), iid.bytes.begin());
            value.begin += kIidSize;
            if (iid == kIidMessage) {
                attachment.embedded = value;
                return;
            }
        }
        if (attachment.data.empty()) attachment.data = value;
    }

    // --- texts ------------------------------------------------------------------------------------------------------

    std::string text_at(tnef_Span span, const tnef_TextKind& kind) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(span.size(), kTextLimit));
        return tnef_utf8(source_.at(span.begin, size), kind);
    }
    std::string text_at(const std::optional<TextPlace>& place, std::string_view set) {
        if (!place) return {};
        return text_at(place->span, {.is_unicode = place->is_unicode, .set = set});
    }
    std::string legacy_text(const Survey& survey, tnef_Attribute attribute) {
        const auto& span = survey.legacy[tnef_legacy_index(*tnef_find_legacy(static_cast<std::uint32_t>(attribute)))];
        return span ? text_at(*span, {.set = survey.set}) : std::string();
    }
    std::string subject_of(const Survey& survey) {
        if (survey.subject) return text_at(survey.subject, survey.set);
        return legacy_text(survey, tnef_Attribute::subject);
    }
    // A class is ASCII ([MS-OXCMSG], section 2.2.1.3); it stands in streams that have no code page.
    std::string class_of(const Survey& survey) {
        std::string name = legacy_text(survey, tnef_Attribute::message_class);
        if (name.empty()) name = text_at(survey.message_class, survey.set);
        return inet_ReplaceBadHeaderChars(tnef_message_class(name));
    }

    // --- properties -------------------------------------------------------------------------------------------------

    void put_properties(const Survey& survey) {
        const std::string item_class = class_of(survey);
        if (!item_class.empty()) {
            tf_Record record(TFREC_item_class);
            record.put_string(16, item_class);
            if (embedded()) tf_ChangeToWrapRec(record);
            TfHandle_.append(record);
        }
        im_Item object = im_create(im_Domain::temporary, kScratchItem);
        im_Item text = im_create(im_Domain::temporary, kScratchItem);
        tnef_Encoder encoder(object, item_class);
        write_legacy(survey, item_class, encoder, text);
        write_properties(survey, encoder, text);
        encoder.finish();
        mp_PutObjectFile(kObjectName, object, TfHandle_, 1, embedded());
        mp_PutMAPIPropsData(0, 0, text, TfHandle_, 1, embedded(), false);
    }

    static void write_line(im_Item& text, const mapi_Property& property) {
        std::string line;
        mapi_append_line(line, property);
        text.write(line);
    }

    void write_properties(const Survey& survey, tnef_Encoder& encoder, im_Item& text) {
        tnef_Cursor in(source_, levels_.back().attributes);
        tnef_AttributeHead head;
        while (tnef_next_attribute(in, head)) {
            if (static_cast<tnef_Attribute>(head.id) != tnef_Attribute::mapi_properties) continue;
            each_property(head.data, [&](const tnef_Property& property) {
                encoder.put(source_, property, survey.set);
                if (!property.is_large()) write_line(text, tnef_read_values(source_, property, survey.set));
            });
        }
    }

    // What the old attributes say, unless the properties say it too.
    void write_legacy(const Survey& survey, std::string_view item_class, tnef_Encoder& encoder, im_Item& text) {
        const bool about_meeting =
            item_class.starts_with("IPM.Schedule.Meeting.") && !item_class.starts_with("IPM.Schedule.Meeting.Resp.");
        for (const tnef_LegacyRow& row : tnef_legacy_rows()) {
            const auto& span = survey.legacy[tnef_legacy_index(row)];
            if (!span || row.attribute == tnef_Attribute::message_class) continue;
            if (span->size() > kTnefLargeValue) {
                put_large_legacy(survey, row, *span, encoder);
                continue;
            }
            const std::string data(source_.at(span->begin, static_cast<std::size_t>(span->size())));
            for (const mapi_Property& property : tnef_legacy_properties(row, data, survey.set, about_meeting)) {
                if (survey.present.test(property.id)) continue;
                encoder.put(property);
                write_line(text, property);
            }
        }
    }

    // Only text has a reason to be long.
    void put_large_legacy(const Survey& survey, const tnef_LegacyRow& row, tnef_Span span, tnef_Encoder& encoder) {
        const std::optional<mapi_Property> head = mapi_find_name(row.name);
        if (row.kind != tnef_LegacyKind::text || !head || survey.present.test(head->id)) return;
        encoder.put_text(*head, source_, span, survey.set);
    }

    // --- items ------------------------------------------------------------------------------------------------------

    void put_item(im_Item item, TFREC_content_file& file) {
        file.fileSize = tf_file_size(item.size());
        item.place();
        items_.push_back(std::move(item));
        tf_Record record;
        tf_ContentFileRecFromStruc(record, file);
        TfHandle_.append(record);
    }

    void put_body(const Survey& survey) {
        if (survey.html && !survey.html->empty()) return put_html(survey);
        if (survey.html_text && !survey.html_text->span.empty())
            return put_text(*survey.html_text, survey.set, kHtmlCode);
        if (survey.rtf && !survey.rtf->empty()) return put_rtf(*survey.rtf);
        if (survey.text && !survey.text->span.empty()) return put_text(*survey.text, survey.set, kPlainTextCode);
        const auto& body =
            survey.legacy[tnef_legacy_index(*tnef_find_legacy(static_cast<std::uint32_t>(tnef_Attribute::body)))];
        if (body && !body->empty()) put_text({*body, false}, survey.set, kPlainTextCode);
    }

    void put_body_item(im_Item item, std::int32_t code, std::string_view type, std::string_view set) {
        TFREC_content_file file;
        tf_initTFREC_content_file(file, code);
        file.pContentCharset = set;
        file.pMIMEContentType = set.empty() ? std::string(type) : mim_InsertNewCSName(type, set);
        file.rfc2047subject = levels_.back().subject;
        put_item(std::move(item), file);
    }

    // Text of any kind becomes UTF-8.
    void put_text(const TextPlace& place, std::string_view set, std::int32_t code) {
        im_Item item = im_CrNewDataItem();
        TextItem text(item);
        tnef_read_text(
            source_, place.span, {.is_unicode = place.is_unicode, .set = set},
            [&](std::string_view piece) { text.add(piece); }, [&] { text.clear(); });
        text.finish();
        const std::string_view out_set = text.is_ascii() ? kAsciiSet : kUtf8Set;
        put_body_item(std::move(item), text_code(code, out_set), code == kHtmlCode ? "text/html" : "text/plain",
                      out_set);
    }

    // HTML is bytes in the set of its own code page; one that has no native name becomes UTF-8.
    void put_html(const Survey& survey) {
        const std::string set = survey.internet_codepage != 0 ? tnef_set_of(survey.internet_codepage) : survey.set;
        const ccs_Descriptor* descriptor = ccs_GetCSDescriptor(set);
        if (descriptor == nullptr) return put_text({*survey.html, false}, set, kHtmlCode);
        im_Item item = im_CrNewDataItem();
        TextItem text(item);
        for (tnef_Span rest = *survey.html; !rest.empty();) text.add(source_.block(rest));
        text.finish();
        const bool is_ascii = text.is_ascii() && descriptor->extends_ascii();
        put_body_item(std::move(item), kHtmlCode, "text/html", is_ascii ? kAsciiSet : descriptor->name);
    }

    void put_rtf(tnef_Span compressed) {
        im_Item item = im_CrNewDataItem();
        tnef_DecompressRtf(source_, compressed, item);
        put_body_item(std::move(item), kRtfCode, "application/rtf", {});
    }

    // --- attachments ------------------------------------------------------------------------------------------------

    void put_attachment(const Attachment& attachment) {
        if (!attachment.embedded) return put_file(attachment, attachment.data, false);
        if (levels_.size() < depth_) return enter(*attachment.embedded);
        put_file(attachment, *attachment.embedded, true);
    }

    std::string name_of(const Attachment& attachment, std::string_view set) {
        for (const auto& name : {text_at(attachment.long_name, set), text_at(attachment.title, {.set = set}),
                                 text_at(attachment.short_name, set), text_at(attachment.display_name, set)})
            if (!base_name(name).empty()) return std::string(base_name(name));
        return {};
    }

    void put_file(const Attachment& attachment, tnef_Span data, bool is_message) {
        const Level& level = levels_.back();
        const std::string name = in_words(name_of(attachment, level.set));
        im_Item item = im_CrNewDataItem();
        source_.copy(data, item);

        TFREC_content_file file;
        if (is_message) {
            tf_initTFREC_content_file(file, kTnefCode);
            file.pMIMEContentType = "application/ms-tnef";
        } else {
            describe(file, item, name, clean_label(text_at(attachment.mime_tag, level.set)));
        }
        file.pOrigFileName = name;
        file.rfc2047subject = name.empty() ? level.subject : name;
        file.pContentID = content_id(clean_label(text_at(attachment.content_id, level.set)));
        file.pContentLocation = clean_label(text_at(attachment.location, level.set));
        file.pContentDisp = (attachment.flags & kReferredTo) != 0 ? "inline" : "attachment";
        put_item(std::move(item), file);
    }

    // As a header field has it.
    static std::string content_id(const std::string& id) {
        if (id.empty() || id.starts_with('<')) return id;
        return '<' + id + '>';
    }

    // Type, code and set: by the MIME tag, then by the extension; a text in no set that is named is looked at.
    void describe(TFREC_content_file& file, const im_Item& item, std::string_view name, std::string_view tag) {
        const bool has_tag = tag.find('/') != tag.npos;
        const mim_QNType by_type = mim_MimeToQNType(has_tag ? tag : kAnyType, name);
        std::int32_t code = by_type.lQNFileCode;
        if (code == kBinaryCode) code = mim_FileExtToQNType(name).value_or(kBinaryCode);
        if (is_own_code(code)) code = kBinaryCode;
        std::string type(has_tag ? tag : kAnyType);
        if (!has_tag && code == kHtmlCode) type = "text/html";
        if (!has_tag && (code == kPlainTextCode || code == kOtherSetTextCode)) type = "text/plain";
        std::string set = by_type.QNCharSet;
        if (is_text_code(code)) {
            if (set.empty()) set = set_of_text(item);
            code = text_code(code, set);
            type = mim_InsertNewCSName(type, set);
        }
        tf_initTFREC_content_file(file, code);
        file.pMIMEContentType = type;
        file.pContentCharset = set;
    }

    std::string set_of_text(const im_Item& item) {
        if (ccs_Is7BitAsciiFile(item)) return std::string(kAsciiSet);
        return is_utf8(item) ? std::string(kUtf8Set) : levels_.back().set;
    }

    tnef_Source source_;
    std::uint64_t size_;
    tf_File& TfHandle_;
    std::size_t depth_;
    std::vector<Level> levels_;
    std::vector<im_Item> items_;  // placed, to be attached when everything has been written
    bool read_receipt_ = false;
    bool reply_ = false;
};

}  // namespace

void tnef_Decode(Msg_File& MsgHandle, tf_File& TfHandle, const im_Item& stream, std::int16_t& pAckReq, bool& pReplyReq,
                 bool /*update_flag*/, bool /*SplitTNEF*/) {
    const er_Trace trace("tnef_Decode");
    const auto depth = static_cast<std::size_t>(std::max(cust_GetInteger("UX_MAX_DEPTH", kDefaultDepth), 1));
    const std::uint64_t position = TfHandle.item().size();
    std::vector<im_Item> items;
    bool read_receipt = false, reply = false;
    try {
        er_Translate([&] {
            tnef_check(stream, depth);
            Expansion expansion(stream, TfHandle, depth);
            expansion.run();
            items = expansion.take_items();
            read_receipt = expansion.read_receipt();
            reply = expansion.reply();
        });
    } catch (const er_Escape&) {
        er_TryIgnoring([&] { TfHandle.item().truncate(position); });
        throw;
    }
    for (im_Item& item : items) Msg_AttachFile(MsgHandle, std::move(item));
    if (read_receipt) pAckReq = std::max(pAckReq, kReadReceipt);
    if (reply) pReplyReq = true;
}
