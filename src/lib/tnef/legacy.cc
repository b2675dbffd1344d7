// Attributes as properties: see legacy.h.
#include "tnef/legacy.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "dstring/ascii.h"
#include "mapi/names.h"
#include "tnef/text.h"

namespace {

using enum tnef_LegacyKind;

// clang-format off
constexpr auto kLegacy = std::to_array<tnef_LegacyRow>({
    {tnef_Attribute::owner,                  counted_pair, "PidTagReceivedRepresentingName"},
    {tnef_Attribute::sent_for,               counted_pair, "PidTagSentRepresentingName"},
    {tnef_Attribute::delegate_entry,         binary,       "PidTagReceivedRepresentingEntryId"},
    {tnef_Attribute::date_start,             date,         "PidTagStartDate"},
    {tnef_Attribute::date_end,               date,         "PidTagEndDate"},
    {tnef_Attribute::owner_appointment_id,   integer32,    "PidTagOwnerAppointmentId"},
    {tnef_Attribute::response_requested,     boolean,      "PidTagResponseRequested"},
    {tnef_Attribute::original_message_class, class_name,   "PidTagOriginalMessageClass"},
    {tnef_Attribute::from,                   sender,       "PidTagSenderName"},
    {tnef_Attribute::subject,                text,         "PidTagSubject"},
    {tnef_Attribute::date_sent,              date,         "PidTagClientSubmitTime"},
    {tnef_Attribute::date_received,          date,         "PidTagMessageDeliveryTime"},
    {tnef_Attribute::message_status,         status,       "PidTagMessageFlags"},
    {tnef_Attribute::message_class,          class_name,   "PidTagMessageClass"},
    {tnef_Attribute::message_id,             hex_key,      "PidTagSearchKey"},
    {tnef_Attribute::parent_id,              hex_key,      "PidTagParentKey"},
    {tnef_Attribute::conversation_id,        hex_key,      "PidTagConversationKey"},
    {tnef_Attribute::body,                   text,         "PidTagBody"},
    {tnef_Attribute::priority,               priority,     "PidTagImportance"},
    {tnef_Attribute::date_modified,          date,         "PidTagLastModificationTime"},
});
// clang-format on
static_assert(kLegacy.size() == kTnefLegacyRows);

// [MS-OXTNEF], section 2.3.3.4.
constexpr auto kClasses = std::to_array<tnef_ClassRow>({
    {"IPM.Microsoft Mail.Note", "IPM.Note"},
    {"IPM.Microsoft Mail.Read Receipt", "Report.IPM.Note.IPNRN"},
    {"IPM.Microsoft Mail.Non-Delivery", "Report.IPM.Note.NDR"},
    {"IPM.Microsoft Schedule.MtgReq", "IPM.Schedule.Meeting.Request"},
    {"IPM.Microsoft Schedule.MtgRespP", "IPM.Schedule.Meeting.Resp.Pos"},
    {"IPM.Microsoft Schedule.MtgRespN", "IPM.Schedule.Meeting.Resp.Neg"},
    {"IPM.Microsoft Schedule.MtgRespA", "IPM.Schedule.Meeting.Resp.Tent"},
    {"IPM.Microsoft Schedule.MtgCncl", "IPM.Schedule.Meeting.Canceled"},
});

constexpr std::string_view kOldPrefix = "Microsoft Mail v3.0 ";
constexpr std::string_view kNameWord = "Name";

constexpr std::size_t kDateSize = 14;
constexpr std::int64_t kSecondsOfDay = 86'400;

unsigned number_at(std::string_view data, std::size_t at) {
    return static_cast<unsigned char>(data[at]) | static_cast<unsigned>(static_cast<unsigned char>(data[at + 1])) << 8;
}

// Days from 1601-01-01 to a day of the Gregorian calendar; years of sixteen bits from 1601 on.
constexpr std::int64_t days_since_1601(unsigned year, unsigned month, unsigned day) {
    constexpr std::array<int, 12> before = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    const std::int64_t full = year - 1601;
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return full * 365 + full / 4 - full / 100 + full / 400 + before[month - 1] + (leap && month > 2 ? 1 : 0) + day - 1;
}
static_assert(days_since_1601(1970, 1, 1) * kSecondsOfDay == kMapiEpoch);
static_assert(days_since_1601(2000, 3, 1) - days_since_1601(2000, 2, 28) == 2);

std::optional<std::int64_t> read_date(std::string_view data) {
    if (data.size() < kDateSize) return std::nullopt;
    const unsigned year = number_at(data, 0), month = number_at(data, 2), day = number_at(data, 4);
    const unsigned hour = number_at(data, 6), minute = number_at(data, 8), second = number_at(data, 10);
    if (year < 1601 || year > 9999 || month < 1 || month > 12 || day < 1 || day > 31) return std::nullopt;
    if (hour > 23 || minute > 59 || second > 59) return std::nullopt;
    const std::int64_t seconds = days_since_1601(year, month, day) * kSecondsOfDay + hour * 3600 + minute * 60 + second;
    return seconds * kMapiTicks;
}

std::optional<std::string> read_hex(std::string_view data) {
    data = data.substr(0, data.find('\0'));
    if (data.size() % 2 != 0) return std::nullopt;
    std::string bytes;
    for (; !data.empty(); data.remove_prefix(2)) {
        unsigned value = 0;
        const auto [end, error] = std::from_chars(data.data(), data.data() + 2, value, 16);
        if (error != std::errc() || end != data.data() + 2) return std::nullopt;
        bytes += static_cast<char>(value);
    }
    return bytes;
}

// Flags of the old kind, and those of PidTagMessageFlags ([MS-OXCMSG], section 2.2.1.6) that say the same.
std::int32_t message_flags(unsigned status) {
    struct Flag {
        unsigned old;
        std::int32_t now;
    };
    constexpr std::array<Flag, 4> flags = {{{0x20, 0x01}, {0x02, 0x08}, {0x04, 0x04}, {0x80, 0x10}}};
    std::int32_t result = (status & 0x01) != 0 ? 0 : 0x02;  // "modified" is the absence of "unmodified"
    for (const Flag& flag : flags) result |= (status & flag.old) != 0 ? flag.now : 0;
    return result;
}

// Three properties of one stem: PidTagSenderName, ...AddressType, ...EmailAddress. An address is "SMTP:a@example.org".
std::vector<mapi_Property> address_properties(std::string_view name_property, std::string_view name,
                                              std::string_view address, std::string_view set) {
    const std::string stem(name_property.substr(0, name_property.size() - kNameWord.size()));
    std::vector<mapi_Property> properties;
    properties.push_back(mapi_unicode(name_property, tnef_utf8(name, {.set = set})));
    const std::string text = tnef_utf8(address, {.set = set});
    const std::size_t colon = text.find(':');
    if (colon == text.npos) return properties;
    properties.push_back(mapi_unicode(stem + "AddressType", text.substr(0, colon)));
    properties.push_back(mapi_unicode(stem + "EmailAddress", text.substr(colon + 1)));
    return properties;
}

// The counted lengths of the structure are of both texts with their paddings.
std::vector<mapi_Property> sender_properties(const tnef_LegacyRow& row, std::string_view data, std::string_view set) {
    constexpr std::size_t head = 8;
    if (data.size() < head) return {};
    const std::size_t name = number_at(data, 4), address = number_at(data, 6);
    if (name + address > data.size() - head) return {};
    return address_properties(row.name, data.substr(head, name), data.substr(head + name, address), set);
}

std::vector<mapi_Property> pair_properties(std::string_view property, std::string_view data, std::string_view set) {
    std::array<std::string_view, 2> texts;
    for (std::string_view& one : texts) {
        if (data.size() < 2 || number_at(data, 0) > data.size() - 2) return {};
        one = data.substr(2, number_at(data, 0));
        data.remove_prefix(2 + one.size());
    }
    return address_properties(property, texts[0], texts[1], set);
}

std::vector<mapi_Property> short_properties(const tnef_LegacyRow& row, std::string_view data) {
    const unsigned number = data.size() >= 2 ? number_at(data, 0) : 0;
    if (row.kind == boolean && data.size() >= 2) return {mapi_boolean(row.name, number != 0)};
    if (row.kind == priority && data.size() >= 2 && number >= 1 && number <= 3)
        return {mapi_integer32(row.name, static_cast<std::int32_t>(3 - number))};
    if (row.kind == status && !data.empty())
        return {mapi_integer32(row.name, message_flags(static_cast<unsigned char>(data[0])))};
    if (row.kind == integer32 && data.size() >= 4)
        return {mapi_integer32(row.name, static_cast<std::int32_t>(number | number_at(data, 2) << 16))};
    return {};
}

}  // namespace

std::span<const tnef_LegacyRow, kTnefLegacyRows> tnef_legacy_rows() { return kLegacy; }
std::span<const tnef_ClassRow> tnef_class_rows() { return kClasses; }

const tnef_LegacyRow* tnef_find_legacy(std::uint32_t attribute) {
    const auto row = std::find_if(kLegacy.begin(), kLegacy.end(), [&](const tnef_LegacyRow& r) {
        return static_cast<std::uint32_t>(r.attribute) == attribute;
    });
    return row == kLegacy.end() ? nullptr : &*row;
}

std::size_t tnef_legacy_index(const tnef_LegacyRow& row) { return static_cast<std::size_t>(&row - kLegacy.data()); }

std::vector<mapi_Property> tnef_legacy_properties(const tnef_LegacyRow& row, std::string_view data,
                                                  std::string_view set, bool about_meeting) {
    switch (row.kind) {
        case text: return {mapi_unicode(row.name, tnef_utf8(data, {.set = set}))};
        case class_name: return {mapi_unicode(row.name, tnef_message_class(tnef_utf8(data, {.set = set})))};
        case binary: return {mapi_binary(row.name, std::string(data))};
        case sender: return sender_properties(row, data, set);
        case counted_pair: return pair_properties(about_meeting ? "PidTagSentRepresentingName" : row.name, data, set);
        case date:
            if (const auto filetime = read_date(data)) return {mapi_time(row.name, *filetime)};
            return {};
        case hex_key:
            if (auto bytes = read_hex(data)) return {mapi_binary(row.name, std::move(*bytes))};
            return {};
        default: return short_properties(row, data);
    }
}

std::string tnef_message_class(std::string_view legacy) {
    std::string_view name = legacy;
    if (name.starts_with(kOldPrefix)) name.remove_prefix(kOldPrefix.size());
    for (const tnef_ClassRow& row : kClasses)
        if (dstring_equal_ignoring_case(row.legacy, name)) return std::string(row.name);
    return std::string(legacy);
}
