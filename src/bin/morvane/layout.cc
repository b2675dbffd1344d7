// The record types: see layout.h. Offsets count from the record's first byte, its 16-byte header included.
#include "morvane/layout.h"

#include <algorithm>
#include <array>

#include "tf/record.h"

namespace morvane {
namespace {

// clang-format off
constexpr FieldRow kMessageFileStart[] = {
    {"formatVersion",   Kind::i32,     16,    Look::never},
    {"filterRoute",     Kind::text,    20,    Look::filled, "route"},
};
constexpr FieldRow kMessageFileEntry[] = {
    {"item",            Kind::item,    16,    Look::always},
};
constexpr FieldRow kQueueEntry[] = {
    {"item",            Kind::item,    16,    Look::always},
    {"priority",        Kind::i32,     36,    Look::always, "", spell_priority},
    {"queued",          Kind::clock,   40,    Look::always, "queued"},
};
constexpr FieldRow kHeader[] = {
    {"reserved16",      Kind::i16,     16,    Look::never},
    {"reserved18",      Kind::i16,     18,    Look::never},
    {"class",           Kind::i16,     20,    Look::always, "", spell_class},
    {"messageType",     Kind::i16,     22,    Look::always, "", spell_message_type},
    {"flags",           Kind::i32,     24,    Look::always, "", spell_header_flags},
    {"reserved28",      Kind::i32,     28,    Look::never},
    {"hops",            Kind::i32,     32,    Look::filled, "hops"},
    {"reserved42",      Kind::i32,     42,    Look::never},
    {"mimeType",        Kind::text,    54,    Look::filled, "", nullptr, true},
};
constexpr FieldRow kCreator[] = {
    {"reserved20",      Kind::i32,     20,    Look::never},
    {"reserved24",      Kind::i16,     24,    Look::never},
    {"name",            Kind::name,    36,    Look::always},
};
constexpr FieldRow kSubject[] = {
    {"subject",         Kind::subject, 16,    Look::always},
    {"reserved1",       Kind::text,    kNext, Look::filled, "", nullptr, true},
    {"reserved2",       Kind::text,    kNext, Look::filled, "", nullptr, true},
    {"reserved3",       Kind::text,    kNext, Look::filled, "", nullptr, true},
    {"reserved4",       Kind::text,    kNext, Look::filled, "", nullptr, true},
    {"reserved5",       Kind::i32,     kNext, Look::filled, "", nullptr, true},
};
constexpr FieldRow kItemClass[] = {
    {"itemClass",       Kind::text,    16,    Look::always},
};
constexpr FieldRow kDate[] = {
    {"seconds",         Kind::seconds, 16,    Look::always},
    {"zone",            Kind::zone,    20,    Look::never},
};
constexpr FieldRow kMessageId[] = {
    {"identifier",      Kind::text,    18,    Look::always},
    {"transportId",     Kind::text,    kNext, Look::filled, "transport id", nullptr, true},
};
constexpr FieldRow kReference[] = {
    {"identifier",      Kind::text,    18,    Look::always},
};
constexpr FieldRow kNameAt24[] = {
    {"name",            Kind::name,    24,    Look::always},
};
constexpr FieldRow kListCounts[] = {
    {"flags",           Kind::i32,     16,    Look::always, "", spell_list_flags},
    {"total",           Kind::i16,     20,    Look::always, "names"},
    {"from",            Kind::i16,     22,    Look::filled, "from"},
    {"to",              Kind::i16,     24,    Look::filled, "to"},
    {"cc",              Kind::i16,     26,    Look::filled, "cc"},
    {"bcc",             Kind::i16,     28,    Look::filled, "bcc"},
    {"reserved30",      Kind::i16,     30,    Look::never},
    {"reserved32",      Kind::i32,     32,    Look::never},
    {"sender",          Kind::i16,     36,    Look::filled, "sender"},
    {"replyTo",         Kind::i16,     38,    Look::filled, "reply-to"},
};
constexpr FieldRow kListEntry[] = {
    {"reserved16",      Kind::i32,     16,    Look::never},
    {"reserved20",      Kind::i16,     20,    Look::never},
    {"reserved22",      Kind::i16,     22,    Look::never},
    {"name",            Kind::name,    24,    Look::always},
};
constexpr FieldRow kStartPackage[] = {
    {"pkgType",         Kind::i32,     16,    Look::always, "", spell_package_type},
    {"pkgSecurity",     Kind::i32,     20,    Look::filled, "security"},
    {"latinSubject",    Kind::text,    24,    Look::filled, "Latin subject"},
    {"subjLang",        Kind::text,    kNext, Look::filled, "subject language"},
    {"latinSubjCharset", Kind::text,   kNext, Look::filled, "subject set"},
    {"pkgFlags",        Kind::i32,     kNext, Look::always, "", spell_package_flags},
    {"qnPkgType",       Kind::i32,     kNext, Look::never},
    {"itemType",        Kind::i16,     kNext, Look::filled, "item type"},
    {"pMIMEContentType", Kind::text,   kNext, Look::filled, "type"},
    {"rfc2047subject",  Kind::subject, kNext, Look::filled, "subject"},
};
constexpr FieldRow kContentFile[] = {
    {"origContentType", Kind::i32,     16,    Look::never},
    {"contentType",     Kind::i32,     20,    Look::never},
    {"contentFlags",    Kind::u32,     24,    Look::always, "", spell_content_flags},
    {"fileSize",        Kind::i32,     28,    Look::never},
    {"latinSubject",    Kind::text,    32,    Look::filled, "Latin subject"},
    {"pOrigFileName",   Kind::subject, kNext, Look::filled, "file name"},
    {"pContentLang",    Kind::text,    kNext, Look::filled, "language"},
    {"pContentCharset", Kind::text,    kNext, Look::never},
    {"subjLang",        Kind::text,    kNext, Look::filled, "subject language"},
    {"latinSubjCharset", Kind::text,   kNext, Look::filled, "subject set"},
    {"pX400_DataObjectId", Kind::text, kNext, Look::filled, "X.400 data object"},
    {"pX400_ParamsObjectId", Kind::text, kNext, Look::filled, "X.400 parameters"},
    {"t61Subject",      Kind::text,    kNext, Look::filled, "T.61 subject"},
    {"t61SubjCharset",  Kind::text,    kNext, Look::filled, "T.61 subject set"},
    {"pOrigCharset",    Kind::text,    kNext, Look::filled, "original set"},
    {"pApplicRef",      Kind::text,    kNext, Look::filled, "application"},
    {"pMIMEContentType", Kind::text,   kNext, Look::filled, "type"},
    {"pContentDisp",    Kind::text,    kNext, Look::filled, "disposition"},
    {"pContentID",      Kind::text,    kNext, Look::filled, "content id"},
    {"pContentLocation", Kind::text,   kNext, Look::filled, "location"},
    {"rfc2047subject",  Kind::subject, kNext, Look::filled, "subject"},
};
constexpr FieldRow kObjectFile[] = {
    {"number",          Kind::i32,     16,    Look::never},
    {"length",          Kind::u32,     20,    Look::never},
    {"objectName",      Kind::text,    24,    Look::always},
    {"content",         Kind::bytes,   kNext, Look::never},
};
constexpr FieldRow kProperties[] = {
    {"flags1",          Kind::i32,     16,    Look::filled, "flags1"},
    {"flags2",          Kind::i32,     20,    Look::filled, "flags2"},
    {"relations",       Kind::i16,     24,    Look::filled, "relations"},
    {"properties",      Kind::text,    26,    Look::never},
};
constexpr FieldRow kRecipient[] = {
    {"flags",           Kind::i16,     16,    Look::always, "", spell_recipient_flags},
    {"recipientId",     Kind::i16,     20,    Look::always, "id"},
    {"reserved1",       Kind::text,    22,    Look::filled},
    {"reserved2",       Kind::text,    kNext, Look::filled},
    {"name",            Kind::name,    kNext, Look::always},
};
constexpr FieldRow kAcknowledgement[] = {
    {"flags",           Kind::i16,     16,    Look::always, "", spell_acknowledgement},
    {"name",            Kind::name,    24,    Look::always},
    {"reserved1",       Kind::text,    kNext, Look::filled, "", nullptr, true},
    {"reserved2",       Kind::text,    kNext, Look::filled, "", nullptr, true},
    {"reserved3",       Kind::text,    kNext, Look::filled, "", nullptr, true},
    {"reserved4",       Kind::text,    kNext, Look::filled, "", nullptr, true},
    {"originalRecipient", Kind::text,  kNext, Look::filled, "originally", nullptr, true},
};
constexpr FieldRow kNonDelivery[] = {
    {"reason",          Kind::i16,     22,    Look::always, "", spell_reason},
    {"name",            Kind::name,    24,    Look::always},
    {"reserved1",       Kind::i16,     kNext, Look::never,  "", nullptr, true},
    {"reserved2",       Kind::i16,     kNext, Look::never,  "", nullptr, true},
    {"originalRecipient", Kind::text,  kNext, Look::filled, "originally", nullptr, true},
};

constexpr std::array kRecords = std::to_array<RecordRow>({
    {TFREC_queue_file_start,     "message_file",       "message file",    kMessageFileStart},
    {TFREC_message_file,         "file",               "file",            kMessageFileEntry},
    {TFREC_queue_entry,          "queue_entry",        "queue entry",     kQueueEntry},
    {TFREC_header,               "header",             "header",          kHeader},
    {TFREC_creator,              "creator",            "creator",         kCreator},
    {TFREC_p2_originator,        "p2_originator",      "P2 originator",   kCreator},
    {TFREC_subject,              "subject",            "subject",         kSubject},
    {TFREC_item_class,           "item_class",         "item class",      kItemClass},
    {TFREC_creation_date,        "creation_date",      "created",         kDate},
    {TFREC_message_id,           "message_id",         "message id",      kMessageId},
    {TFREC_in_reply_to,          "in_reply_to",        "in reply to",     kReference},
    {TFREC_reply_by,             "reply_by",           "reply by",        kDate},
    {TFREC_expiry_date,          "expiry_date",        "expires",         kDate},
    {TFREC_references,           "references",         "references",      kReference},
    {TFREC_obsoletes,            "obsoletes",          "obsoletes",       kReference},
    {TFREC_deferred_delivery,    "deferred_delivery",  "deferred until",  kDate},
    {TFREC_reply_to,             "reply_to",           "reply to",        kNameAt24},
    {TFREC_latest_delivery,      "latest_delivery",    "latest delivery", kDate},
    {TFREC_originator_return,    "originator_return",  "return address",  kNameAt24},
    {TFREC_list_counts,          "list_counts",        "counts",          kListCounts},
    {TFREC_list_from,            "list_from",          "From",            kListEntry},
    {TFREC_list_to,              "list_to",            "To",              kListEntry},
    {TFREC_list_cc,              "list_cc",            "Cc",              kListEntry},
    {TFREC_list_bcc,             "list_bcc",           "Bcc",             kListEntry},
    {TFREC_list_sender,          "list_sender",        "Sender",          kListEntry},
    {TFREC_list_reply_to,        "list_reply_to",      "Reply-To",        kListEntry},
    {TFREC_start_package_type,   "start_package",      "package",         kStartPackage},
    {TFREC_start_alternatives,   "start_alternatives", "alternatives",    {}},
    {TFREC_content_file_type,    "content_file",       "content",         kContentFile},
    {TFREC_file_creation_date,   "file_creation_date", "file created",    kDate},
    {TFREC_file_modification_date, "file_modification_date", "file modified", kDate},
    {TFREC_object_file,          "object_file",        "object",          kObjectFile},
    {TFREC_mapi_properties,      "mapi_properties",    "properties",      kProperties},
    {TFREC_wrapped,              "wrapped",            "wrapped record",  {}},
    {TFREC_end_package,          "end_package",        "end of package",  {}},
    {TFREC_end_alternatives,     "end_alternatives",   "end of alternatives", {}},
    {TFREC_recipient,            "recipient",          "recipient",       kRecipient},
    {TFREC_acknowledgement,      "acknowledgement",    "acknowledgement", kAcknowledgement},
    {TFREC_non_delivery,         "non_delivery",       "non-delivery",    kNonDelivery},
});
// clang-format on

constexpr bool in_order(std::span<const RecordRow> rows) {
    for (std::size_t i = 1; i < rows.size(); ++i)
        if (rows[i - 1].type >= rows[i].type) return false;
    return true;
}
static_assert(in_order(kRecords));  // looked up by halving

std::size_t width_of(Kind kind) {
    switch (kind) {
        case Kind::i16:
        case Kind::zone: return 2;
        case Kind::i32:
        case Kind::u32:
        case Kind::seconds: return 4;
        case Kind::i64:
        case Kind::clock: return 8;
        case Kind::item: return 20;
        case Kind::text:
        case Kind::subject:
        case Kind::name:
        case Kind::bytes: return 0;
    }
    return 0;
}

std::uint64_t load(std::string_view head, std::uint64_t at, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i)
        value = value << 8 | static_cast<unsigned char>(head[static_cast<std::size_t>(at) + i]);
    return value;
}

std::int64_t number_of(Kind kind, std::uint64_t bits) {
    if (kind == Kind::i16 || kind == Kind::zone) return static_cast<std::int16_t>(bits);
    if (kind == Kind::i32) return static_cast<std::int32_t>(bits);
    return static_cast<std::int64_t>(bits);
}

ITEM_REF item_at(std::string_view head, std::uint64_t at) {
    ITEM_REF ref;
    ref.domain = static_cast<std::uint16_t>(load(head, at, 2));
    ref.flags = static_cast<std::uint16_t>(load(head, at + 2, 2));
    ref.sub_domain = static_cast<std::uint32_t>(load(head, at + 4, 4));
    ref.file_id = load(head, at + 8, 8);
    std::copy_n(head.begin() + static_cast<std::ptrdiff_t>(at) + 16, 4, ref.extension.begin());
    return ref;
}

// A text runs to its NUL. When that is not among the bytes that we have, it is either further on (the rest is not
// looked at) or missing (the text ends with the record).
void read_text(FieldValue& value, std::string_view head, std::uint64_t length) {
    const std::string_view rest = head.substr(std::min<std::size_t>(head.size(), static_cast<std::size_t>(value.at)));
    const std::size_t end = rest.find('\0');
    value.text = rest.substr(0, end);
    value.cut = end == std::string_view::npos;
    value.width = value.cut ? length - value.at : end + 1;
}

}  // namespace

const RecordRow* find_record(std::int32_t type) {
    const auto found = std::lower_bound(kRecords.begin(), kRecords.end(), type,
                                        [](const RecordRow& row, std::int32_t wanted) { return row.type < wanted; });
    return found == kRecords.end() || found->type != type ? nullptr : &*found;
}

std::span<const RecordRow> all_records() { return kRecords; }

const FieldValue* FieldList::find(std::string_view key) const {
    for (const FieldValue& value : values)
        if (value.row->key == key) return &value;
    return nullptr;
}

std::int64_t FieldList::number(std::string_view key) const {
    const FieldValue* value = find(key);
    return value == nullptr ? 0 : value->number;
}

std::string_view FieldList::text(std::string_view key) const {
    const FieldValue* value = find(key);
    return value == nullptr ? std::string_view{} : value->text;
}

FieldList read_fields(const RecordRow& row, std::string_view head, std::uint64_t length) {
    FieldList list;
    list.values.reserve(row.fields.size());
    std::uint64_t next = kTfHeaderSize;
    for (const FieldRow& field : row.fields) {
        FieldValue value;
        value.row = &field;
        value.at = field.at == kNext ? next : static_cast<std::uint64_t>(field.at);
        const std::size_t width = width_of(field.kind);
        const bool there = width == 0 ? value.at < length : value.at + width <= length;
        const bool seen = width == 0 || value.at + width <= head.size();
        if (field.kind == Kind::bytes) {
            value.width =
                std::min(static_cast<std::uint64_t>(list.number("length")), length - std::min(length, value.at));
            value.text = head.substr(std::min<std::size_t>(head.size(), static_cast<std::size_t>(value.at)));
            value.text = value.text.substr(0, static_cast<std::size_t>(value.width));
            value.cut = static_cast<std::uint64_t>(list.number("length")) != length - std::min(length, value.at);
        } else if (!there || !seen) {
            if (!there && field.optional) continue;
            if (!there) list.missing = &field;
            break;  // a field that follows one that is not there, or not looked at, cannot be found
        } else if (width == 0) {
            read_text(value, head, length);
        } else if (field.kind == Kind::item) {
            value.width = width;
            value.item = item_at(head, value.at);
        } else {
            value.width = width;
            value.number = number_of(field.kind, load(head, value.at, width));
        }
        next = value.at + value.width;
        list.values.push_back(value);
    }
    return list;
}

}  // namespace morvane
