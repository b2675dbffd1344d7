// Calendars: whatever the text, an answer; what comes of it is XML that is read again, and a recurrence that decodes
// and is encoded to the same bytes.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "cvc/utf8.h"
#include "er/er.h"
#include "mapi/calendar.h"
#include "mapi/calendar_reader.h"
#include "mapi/property_text.h"
#include "mapi/property_xml.h"
#include "mapi/recurrence.h"

namespace {

void must(bool holds) {
    if (!holds) std::abort();
}

void check_recurrence(std::string_view properties) {
    constexpr std::string_view name = "\nPidLidAppointmentRecur:binary=";
    const std::size_t at = properties.find(name);
    if (at == std::string_view::npos) return;
    properties.remove_prefix(at + name.size());
    const auto bytes = mapi_read_base64(properties.substr(0, properties.find('\n')));
    must(bytes.has_value());
    const auto recurrence = decode_recurrence(*bytes);
    must(recurrence && encode_recurrence(*recurrence) == *bytes);
    must(recurrence->pattern.modified.size() == recurrence->exceptions.size());
    must(recurrence->pattern.deleted.size() >= recurrence->exceptions.size());
    for (const std::uint32_t day : recurrence->pattern.deleted)
        must(occurs_on(recurrence->pattern, day / kMinutesOfDay));
}

void check(const MAPI_ICAL_2_XML& entry) {
    must(check_utf8(entry.pTextDescription).valid == entry.pTextDescription.size());
    must(check_utf8(entry.pPnPropsXml).valid == entry.pPnPropsXml.size());
    must(entry.utcRecurrenceIdTime.size() <= 20);
    im_Item tnef = im_create(im_Domain::temporary, kScratchItem);
    const MSGSTORE_MAPI_INFO info = mapi_CreateMapiInfoFromXml(entry.pPnPropsXml, tnef);
    must(!info.itemClass.empty() && !info.listProps.empty());
    check_recurrence(info.listProps);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::string lines = calendar_lines(text);
    must(calendar_lines(lines) == lines);  // what is kept is kept again
    const auto made = mapi_IcalToPnProps(text, "subject");
    for (const MAPI_ICAL_2_XML* entry = made.get(); entry != nullptr; entry = entry->next.get()) check(*entry);
    if (const auto recurrence = decode_recurrence(text)) {
        const auto again = decode_recurrence(encode_recurrence(*recurrence));
        must(again && again->pattern == recurrence->pattern);
        pattern_days(recurrence->pattern, 100);
        describe_pattern(recurrence->pattern);
    }
    return 0;
}
