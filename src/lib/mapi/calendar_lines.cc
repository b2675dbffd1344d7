// Reducing iCalendar text to what becomes something: see calendar_reader.h.
//
//   contentline = name *(";" param) ":" value CRLF; a line that begins with a blank or tab goes on the one before
//
// Every byte is looked at once, and nothing depends on how deep components are nested: below the ones that are known
// only their number is counted.
#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

#include "dstring/ascii.h"
#include "er/er.h"
#include "mapi/calendar_reader.h"

namespace {

constexpr int kSharedWarning = 24071;
constexpr std::size_t kMostOfOneName = 1000;

// What a property belongs to; bits, so that a row can name several.
enum Place : unsigned { nowhere = 0, calendar = 1, entry = 2, zone = 4, observance = 8, alarm = 16 };

struct NameRow {
    std::string_view name;
    unsigned places;
};
constexpr auto kProperties = std::to_array<NameRow>({
    {"ACTION", alarm},
    {"ATTACH", entry},
    {"ATTENDEE", entry},
    {"CATEGORIES", entry},
    {"CLASS", entry},
    {"COMPLETED", entry},
    {"DESCRIPTION", entry},
    {"DTEND", entry},
    {"DTSTAMP", entry},
    {"DTSTART", entry | observance},
    {"DUE", entry},
    {"DURATION", entry},
    {"EXDATE", entry},
    {"LOCATION", entry},
    {"METHOD", calendar},
    {"ORGANIZER", entry},
    {"PERCENT-COMPLETE", entry},
    {"PRIORITY", entry},
    {"RDATE", entry | observance},
    {"RECURRENCE-ID", entry},
    {"RRULE", entry | observance},
    {"SEQUENCE", entry},
    {"STATUS", entry},
    {"SUMMARY", entry},
    {"TRANSP", entry},
    {"TRIGGER", alarm},
    {"TZID", zone},
    {"TZOFFSETFROM", observance},
    {"TZOFFSETTO", observance},
    {"UID", entry},
    {"X-MICROSOFT-CDO-ALLDAYEVENT", entry},
    {"X-MICROSOFT-CDO-BUSYSTATUS", entry},
    {"X-MICROSOFT-CDO-IMPORTANCE", entry},
    {"X-MICROSOFT-CDO-INTENDEDSTATUS", entry},
    {"X-MICROSOFT-DISALLOW-COUNTER", entry},
    {"X-MS-OLK-ORIGINALEND", entry},
    {"X-MS-OLK-ORIGINALSTART", entry},
    {"X-WR-TIMEZONE", calendar},
});

struct ComponentRow {
    std::string_view name;
    Place inside, place;
};
constexpr auto kComponents = std::to_array<ComponentRow>({
    {"VCALENDAR", nowhere, calendar},
    {"VEVENT", calendar, entry},
    {"VTODO", calendar, entry},
    {"VTIMEZONE", calendar, zone},
    {"VALARM", entry, alarm},
    {"STANDARD", zone, observance},
    {"DAYLIGHT", zone, observance},
});

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    return text;
}

void append_utf8(std::string& out, std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = er_utf8_length(text);
        if (length != 0) {
            out.append(text.substr(0, length));
            text.remove_prefix(length);
            continue;
        }
        const auto byte = static_cast<unsigned char>(text.front());
        out += static_cast<char>(0xC0 | byte >> 6);
        out += static_cast<char>(0x80 | (byte & 0x3F));
        text.remove_prefix(1);
    }
}

// Text that was cut anywhere, without the character that was cut.
std::string_view whole_characters(std::string_view text) {
    constexpr std::size_t longest = 4;
    for (std::size_t back = 1; back <= std::min(longest, text.size()); ++back) {
        const auto byte = static_cast<unsigned char>(text[text.size() - back]);
        if (byte < 0x80) break;
        if (byte < 0xC0) continue;
        if (er_utf8_length(text.substr(text.size() - back)) == 0) text.remove_suffix(back);
        break;
    }
    return text;
}

// One content line, unfolded, kept as far as the longest value that may be. Views into the text where it was not folded
// are not worth their code: lines are short.
class LineReader {
public:
    explicit LineReader(std::string_view text) : text_(text) {
        constexpr std::string_view mark = "\xEF\xBB\xBF";
        if (text_.starts_with(mark)) text_.remove_prefix(mark.size());
    }
    bool next(std::string& line) {
        if (text_.empty()) return false;
        line.clear();
        cut_ = false;
        take(line);
        while (!text_.empty() && (text_.front() == ' ' || text_.front() == '\t')) {
            text_.remove_prefix(1);
            take(line);
        }
        return true;
    }
    bool cut() const { return cut_; }

private:
    void take(std::string& line) {
        const std::size_t end = std::min(text_.find('\n'), text_.size());
        std::string_view piece = text_.substr(0, end);
        text_.remove_prefix(std::min(end + 1, text_.size()));
        while (piece.ends_with('\r')) piece.remove_suffix(1);
        const std::size_t room = kLongestCalendarText - std::min(line.size(), kLongestCalendarText);
        if (piece.size() > room) cut_ = true;
        line.append(piece.substr(0, room));
    }
    std::string_view text_;
    bool cut_ = false;
};

class Reducer {
public:
    std::string run(std::string_view text);

private:
    struct Level {
        const ComponentRow* row;
        std::size_t start;  // of its lines in out_
        std::array<std::uint16_t, kProperties.size()> counts{};
    };
    void begin(std::string_view name);
    void end(std::string_view name);
    void property(std::string_view line, bool cut);
    bool room_for(std::size_t bytes) const { return out_.size() + bytes <= kMostCalendarBytes; }
    void put(std::string_view line) { out_.append(line) += '\n'; }

    std::string out_;
    std::vector<Level> levels_;    // of known components: at most three
    std::uint64_t unknown_ = 0;    // depth below one that is not known or not kept
    std::size_t components_ = 0;   // kept below a VCALENDAR
    std::size_t entries_ = 0;      // events and tasks of the VCALENDAR in hand
    std::size_t all_entries_ = 0;  // of those that are whole
    bool left_out_ = false;
};

void Reducer::begin(std::string_view name) {
    const Place inside = levels_.empty() ? nowhere : levels_.back().row->place;
    const auto* row = std::find_if(kComponents.begin(), kComponents.end(), [&](const ComponentRow& candidate) {
        return candidate.inside == inside && dstring_equal_ignoring_case(candidate.name, name);
    });
    const bool counted = row != kComponents.end() && row->inside == calendar;
    const bool kept = unknown_ == 0 && row != kComponents.end() && room_for(64) &&
                      (!counted || components_ < kMostCalendarComponents);
    if (!kept) {
        left_out_ = left_out_ || (row != kComponents.end() && unknown_ == 0);
        ++unknown_;
        return;
    }
    if (row->place == calendar) entries_ = 0;
    levels_.push_back({row, out_.size(), {}});
    if (counted) ++components_;
    out_.append("BEGIN:");
    put(row->name);
}

// A component whose end bears another name is not one: what was kept of it goes, and what follows belongs to the one
// around it.
void Reducer::end(std::string_view name) {
    if (unknown_ > 0) {
        --unknown_;
        return;
    }
    if (levels_.empty()) return;
    const Level level = levels_.back();
    levels_.pop_back();
    if (!dstring_equal_ignoring_case(level.row->name, name)) {
        out_.resize(level.start);
        return;
    }
    out_.append("END:");
    put(level.row->name);
    if (level.row->place == entry) ++entries_;
    if (level.row->place == calendar) all_entries_ += entries_;
}

const NameRow* find_property(std::string_view name, Place place) {
    const auto* row = std::find_if(kProperties.begin(), kProperties.end(), [name](const NameRow& candidate) {
        return dstring_equal_ignoring_case(candidate.name, name);
    });
    return row != kProperties.end() && (row->places & place) != 0 ? row : nullptr;
}

void Reducer::property(std::string_view line, bool cut) {
    if (unknown_ > 0 || levels_.empty()) return;
    const std::string_view name = line.substr(0, line.find_first_of(":;"));
    const NameRow* row = find_property(trimmed(name), levels_.back().row->place);
    if (row == nullptr) return;
    std::uint16_t& count = levels_.back().counts[static_cast<std::size_t>(row - kProperties.data())];
    if (count >= (row->name == "ATTENDEE" ? kMostAttendees : kMostOfOneName)) {
        left_out_ = true;
        return;
    }
    if (row->name == "ATTACH") {  // only their number is asked for, and content in the line may be large
        if (room_for(16)) put("ATTACH:cid:0");
        ++count;
        return;
    }
    const std::size_t most = row->name == "DESCRIPTION" ? kLongestCalendarText : kLongestCalendarValue;
    if (line.size() > most || cut) left_out_ = true;
    if (line.size() > most) line = whole_characters(line.substr(0, most));
    if (!room_for(2 * line.size() + row->name.size() + 64)) {
        left_out_ = true;
        return;
    }
    ++count;
    out_.append(row->name);
    append_utf8(out_, line.substr(std::min(name.size(), line.size())));
    out_ += '\n';
}

std::string Reducer::run(std::string_view text) {
    LineReader lines(text);
    std::string line;
    while (lines.next(line)) {
        std::replace(line.begin(), line.end(), '\0', ' ');
        if (dstring_starts_ignoring_case(line, "BEGIN:"))
            begin(trimmed(std::string_view(line).substr(6)));
        else if (dstring_starts_ignoring_case(line, "END:"))
            end(trimmed(std::string_view(line).substr(4)));
        else
            property(line, lines.cut());
    }
    if (!levels_.empty()) out_.resize(levels_.front().start);
    if (all_entries_ == 0) out_.clear();
    if (left_out_ && !out_.empty())
        er_LogMsg(7, kSharedGroup, kSharedWarning, "Calendar larger than its bounds: ", "what lies beyond is left out");
    return std::move(out_);
}

}  // namespace

std::string calendar_utf8(std::string_view text) {
    std::string out;
    append_utf8(out, text);
    return out;
}

std::string calendar_lines(std::string_view text) { return Reducer().run(text); }
