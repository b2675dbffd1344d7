// The binary structure of recurring appointments ([MS-OXOCAL], section 2.2.1.44): see recurrence.h.
//
//   RecurrencePattern
//     u16  0x3004, 0x3004, frequency, pattern type, calendar type (0)
//     u32  first date and time, period, sliding flag (0)
//     u32  week: weekdays | month, month_end: day | month_nth: weekdays, nth | day: nothing
//     u32  end, occurrences, first day of the week
//     u32  number of deleted instances, their dates; number of modified ones, their dates
//     u32  start date, end date
//   AppointmentRecurrencePattern
//     RecurrencePattern
//     u32  0x3006, 0x3009, start offset, end offset
//     u16  number of exceptions, then each:
//            u32 start, end, original start; u16 flags
//            subject: u16 length + 1, u16 length, bytes; u32 meeting type; u32 reminder delta; u32 reminder set;
//            location as the subject; u32 busy status, attachment, sub type, colour: each when its flag is set
//     u32  size of a reserved block (0), the block
//     for each exception again:
//            u32 size of the change highlight (4), u32 change highlight; u32 size of a reserved block (0)
//            with a subject or a location: u32 start, end, original start; subject, location: u16 length, UTF-16;
//            u32 size of a reserved block (0)
//     u32  size of a reserved block (0), the block
#include <algorithm>

#include "mapi/property.h"
#include "mapi/recurrence.h"

namespace {

constexpr std::uint16_t kPatternVersion = 0x3004;
constexpr std::uint32_t kReaderVersion = 0x3006;
constexpr std::uint32_t kWriterVersion = 0x3009;  // from here on there are change highlights
constexpr std::size_t kLongestText = 255;         // of a subject or location in an exception, in characters

class Writer {
public:
    void put16(std::uint32_t value) { put(value, 2); }
    void put32(std::uint32_t value) { put(value, 4); }
    void put_bytes(std::string_view bytes) { out_.append(bytes); }
    std::string take() { return std::move(out_); }

private:
    void put(std::uint32_t value, int width) {
        for (int i = 0; i < width; ++i) out_ += static_cast<char>(value >> (8 * i) & 0xFF);
    }
    std::string out_;
};

// Reads behind the end are zero and are remembered: a structure is looked at only when it was all there.
class Reader {
public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}
    std::uint16_t get16() { return static_cast<std::uint16_t>(get(2)); }
    std::uint32_t get32() { return get(4); }
    std::string_view get_bytes(std::size_t count) {
        if (count > bytes_.size()) {
            failed_ = true;
            count = 0;
        }
        const std::string_view got = bytes_.substr(0, count);
        bytes_.remove_prefix(count);
        return got;
    }
    void skip_block() { get_bytes(get32()); }
    std::size_t left() const { return bytes_.size(); }
    bool failed() const { return failed_; }
    void fail() { failed_ = true; }

private:
    std::uint32_t get(std::size_t width) {
        const std::string_view bytes = get_bytes(width);
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i)
            value |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
        return value;
    }
    std::string_view bytes_;
    bool failed_ = false;
};

// At most so many characters of well-formed text.
std::string_view first_characters(std::string_view text, std::size_t most) {
    std::size_t at = 0;
    for (std::size_t count = 0; at < text.size() && count < most; ++count) {
        ++at;
        while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) ++at;
    }
    return text.substr(0, at);
}

// The 8-bit form of a text, which readers of today pass over: what is not ASCII is "?".
std::string narrow(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) out += c;
        if (byte >= 0xC0) out += '?';
    }
    return out;
}

bool has_kind_of_day(PatternType type) { return type == PatternType::month || type == PatternType::month_end; }

void put_pattern(Writer& out, const RecurrencePattern& pattern) {
    out.put16(kPatternVersion);
    out.put16(kPatternVersion);
    out.put16(static_cast<std::uint16_t>(pattern.frequency));
    out.put16(static_cast<std::uint16_t>(pattern.type));
    out.put16(0);
    out.put32(pattern.first);
    out.put32(pattern.period);
    out.put32(0);
    if (pattern.type == PatternType::week || pattern.type == PatternType::month_nth) out.put32(pattern.weekdays);
    if (pattern.type == PatternType::month_nth) out.put32(pattern.nth);
    if (has_kind_of_day(pattern.type)) out.put32(pattern.day_of_month);
    out.put32(static_cast<std::uint32_t>(pattern.end));
    out.put32(pattern.occurrences);
    out.put32(pattern.first_weekday);
    for (const auto* dates : {&pattern.deleted, &pattern.modified}) {
        out.put32(static_cast<std::uint32_t>(dates->size()));
        for (const std::uint32_t date : *dates) out.put32(date);
    }
    out.put32(pattern.start_date);
    out.put32(pattern.end_date);
}

void put_narrow(Writer& out, std::string_view text) {
    const std::string bytes = narrow(first_characters(text, kLongestText));
    out.put16(static_cast<std::uint32_t>(bytes.size() + 1));
    out.put16(static_cast<std::uint32_t>(bytes.size()));
    out.put_bytes(bytes);
}

void put_wide(Writer& out, std::string_view text) {
    std::string bytes;
    mapi_append_utf16(bytes, first_characters(text, kLongestText));
    out.put16(static_cast<std::uint32_t>(bytes.size() / 2));
    out.put_bytes(bytes);
}

void put_exception(Writer& out, const RecurrenceException& exception) {
    out.put32(exception.start);
    out.put32(exception.end);
    out.put32(exception.original_start);
    out.put16(exception.changes);
    if (exception.changes & kChangedSubject) put_narrow(out, exception.subject);
    if (exception.changes & kChangedMeetingType) out.put32(exception.meeting_type);
    if (exception.changes & kChangedReminderDelta) out.put32(exception.reminder_delta);
    if (exception.changes & kChangedReminder) out.put32(exception.reminder_set);
    if (exception.changes & kChangedLocation) put_narrow(out, exception.location);
    if (exception.changes & kChangedBusyStatus) out.put32(exception.busy_status);
    if (exception.changes & kChangedAttachment) out.put32(exception.attachment);
    if (exception.changes & kChangedSubType) out.put32(exception.sub_type);
    if (exception.changes & kChangedColor) out.put32(exception.color);
}

void put_extended(Writer& out, const RecurrenceException& exception) {
    out.put32(4);
    out.put32(0);
    out.put32(0);
    if ((exception.changes & (kChangedSubject | kChangedLocation)) == 0) return;
    out.put32(exception.start);
    out.put32(exception.end);
    out.put32(exception.original_start);
    if (exception.changes & kChangedSubject) put_wide(out, exception.subject);
    if (exception.changes & kChangedLocation) put_wide(out, exception.location);
    out.put32(0);
}

void get_dates(Reader& in, std::vector<std::uint32_t>& dates) {
    const std::uint32_t count = in.get32();
    if (count > in.left() / 4) return in.fail();
    dates.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) dates.push_back(in.get32());
}

bool is_sound(const RecurrencePattern& pattern) {
    constexpr std::uint32_t every_day = 0x7F;
    if (pattern.period == 0 || pattern.first_weekday > 6) return false;
    switch (pattern.type) {
        case PatternType::day: return pattern.period % kMinutesOfDay == 0;
        case PatternType::week: return pattern.weekdays != 0 && pattern.weekdays <= every_day;
        case PatternType::month_nth:
            return pattern.weekdays != 0 && pattern.weekdays <= every_day && pattern.nth >= 1 && pattern.nth <= 5;
        case PatternType::month:
        case PatternType::month_end: return pattern.day_of_month >= 1 && pattern.day_of_month <= 31;
    }
    return false;
}

std::optional<RecurrencePattern> get_pattern(Reader& in) {
    RecurrencePattern pattern;
    if (in.get16() != kPatternVersion) return std::nullopt;
    in.get16();
    const std::uint16_t frequency = in.get16(), type = in.get16(), calendar = in.get16();
    if (frequency < 0x200A || frequency > 0x200D || type > 4 || calendar > 1) return std::nullopt;
    pattern.frequency = static_cast<RecurFrequency>(frequency);
    pattern.type = static_cast<PatternType>(type);
    pattern.first = in.get32();
    pattern.period = in.get32();
    in.get32();
    if (pattern.type == PatternType::week || pattern.type == PatternType::month_nth) pattern.weekdays = in.get32();
    if (pattern.type == PatternType::month_nth) pattern.nth = in.get32();
    if (has_kind_of_day(pattern.type)) pattern.day_of_month = in.get32();
    std::uint32_t end = in.get32();
    if (end == 0xFFFFFFFF) end = static_cast<std::uint32_t>(RecurrenceEnd::never);  // written so as well
    if (end < 0x2021 || end > 0x2023) return std::nullopt;
    pattern.end = static_cast<RecurrenceEnd>(end);
    pattern.occurrences = in.get32();
    pattern.first_weekday = in.get32();
    get_dates(in, pattern.deleted);
    get_dates(in, pattern.modified);
    pattern.start_date = in.get32();
    pattern.end_date = in.get32();
    if (in.failed() || !is_sound(pattern)) return std::nullopt;
    return pattern;
}

std::string get_narrow(Reader& in) {
    in.get16();
    const std::string_view bytes = in.get_bytes(in.get16());
    std::string text;
    for (const char c : bytes) text += static_cast<unsigned char>(c) < 0x80 ? c : '?';
    return text;
}

void get_exception(Reader& in, RecurrenceException& exception) {
    exception.start = in.get32();
    exception.end = in.get32();
    exception.original_start = in.get32();
    exception.changes = in.get16();
    if (exception.changes & kChangedSubject) exception.subject = get_narrow(in);
    if (exception.changes & kChangedMeetingType) exception.meeting_type = in.get32();
    if (exception.changes & kChangedReminderDelta) exception.reminder_delta = in.get32();
    if (exception.changes & kChangedReminder) exception.reminder_set = in.get32();
    if (exception.changes & kChangedLocation) exception.location = get_narrow(in);
    if (exception.changes & kChangedBusyStatus) exception.busy_status = in.get32();
    if (exception.changes & kChangedAttachment) exception.attachment = in.get32();
    if (exception.changes & kChangedSubType) exception.sub_type = in.get32();
    if (exception.changes & kChangedColor) exception.color = in.get32();
}

std::string get_wide(Reader& in) { return mapi_utf8(in.get_bytes(std::size_t{in.get16()} * 2)); }

void get_extended(Reader& in, std::uint32_t writer, RecurrenceException& exception) {
    if (writer >= kWriterVersion) in.skip_block();
    in.skip_block();
    if ((exception.changes & (kChangedSubject | kChangedLocation)) == 0) return;
    in.get_bytes(12);
    if (exception.changes & kChangedSubject) exception.subject = get_wide(in);
    if (exception.changes & kChangedLocation) exception.location = get_wide(in);
    in.skip_block();
}

}  // namespace

std::string encode_pattern(const RecurrencePattern& pattern) {
    Writer out;
    put_pattern(out, pattern);
    return out.take();
}

std::string encode_recurrence(const AppointmentRecurrence& recurrence) {
    Writer out;
    put_pattern(out, recurrence.pattern);
    out.put32(kReaderVersion);
    out.put32(kWriterVersion);
    out.put32(recurrence.start_offset);
    out.put32(recurrence.end_offset);
    out.put16(static_cast<std::uint32_t>(recurrence.exceptions.size()));
    for (const RecurrenceException& exception : recurrence.exceptions) put_exception(out, exception);
    out.put32(0);
    for (const RecurrenceException& exception : recurrence.exceptions) put_extended(out, exception);
    out.put32(0);
    return out.take();
}

std::optional<RecurrencePattern> decode_pattern(std::string_view bytes) {
    Reader in(bytes);
    return get_pattern(in);
}

std::optional<AppointmentRecurrence> decode_recurrence(std::string_view bytes) {
    Reader in(bytes);
    const auto pattern = get_pattern(in);
    if (!pattern) return std::nullopt;
    AppointmentRecurrence recurrence;
    recurrence.pattern = *pattern;
    in.get32();
    const std::uint32_t writer = in.get32();
    recurrence.start_offset = in.get32();
    recurrence.end_offset = in.get32();
    const std::uint16_t count = in.get16();
    for (std::uint16_t i = 0; i < count && !in.failed(); ++i) get_exception(in, recurrence.exceptions.emplace_back());
    in.skip_block();
    for (RecurrenceException& exception : recurrence.exceptions) {
        if (in.failed()) break;
        get_extended(in, writer, exception);
    }
    in.skip_block();
    if (in.failed()) return std::nullopt;
    return recurrence;
}
