// Reading TZif files: see tzif.h.
//
//   header   "TZif", version, 15 bytes, six 32-bit counts: UT marks, standard marks, leap seconds, changes, types,
//   names block    times of the changes, a type for each, the types (32-bit offset, daylight, index of the name),
//   names, leap
//            seconds, marks
//   file     header, block with 32-bit times, header, block with 64-bit times, LF, a POSIX TZ text, LF
//
// All big-endian. The TZ text says what holds after the last change: "CET-1CEST,M3.5.0,M10.5.0/3".
#include "mapi/tzif.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "dstring/ascii.h"
#include "er/er.h"
#include "os/os.h"

namespace {

constexpr std::string_view kZoneFolder = "/usr/share/zoneinfo/";
constexpr std::size_t kLongestZoneName = 64;
constexpr std::size_t kLargestZoneFile = std::size_t{64} << 10;
constexpr std::size_t kHeaderSize = 44;
constexpr std::int64_t kFirstChange = -11'644'473'600;  // 1601-01-01

bool is_zone_name(std::string_view name) {
    return !name.empty() && name.size() <= kLongestZoneName && name.front() != '/' &&
           name.find("//") == std::string_view::npos && std::all_of(name.begin(), name.end(), [](char c) {
               const char lower = dstring_lower(c);
               return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '+' || c == '-' ||
                      c == '/';
           });
}

std::int64_t big_endian(std::string_view bytes, std::size_t at, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return width == 4 ? static_cast<std::int32_t>(value) : static_cast<std::int64_t>(value);
}

struct Block {
    std::size_t changes = 0, types = 0, size = 0;
    std::string_view bytes;
};
// The block behind the header that `file` begins with.
std::optional<Block> take_block(std::string_view& file, std::size_t time_width) {
    if (file.size() < kHeaderSize || !file.starts_with("TZif") || file[4] < '2') return std::nullopt;
    std::array<std::size_t, 6> counts{};
    for (std::size_t i = 0; i < counts.size(); ++i) {
        const std::int64_t count = big_endian(file, 20 + 4 * i, 4);
        if (count < 0 || static_cast<std::size_t>(count) > kLargestZoneFile) return std::nullopt;
        counts[i] = static_cast<std::size_t>(count);
    }
    const auto [ut_marks, standard_marks, leaps, changes, types, names] = counts;
    Block block{changes, types, 0, {}};
    block.size = changes * (time_width + 1) + types * 6 + names + leaps * (time_width + 4) + standard_marks + ut_marks;
    file.remove_prefix(kHeaderSize);
    if (file.size() < block.size) return std::nullopt;
    block.bytes = file.substr(0, block.size);
    file.remove_prefix(block.size);
    return block;
}

// A cursor in a TZ text; what does not fit leaves it where it is and says so.
class ZoneText {
public:
    explicit ZoneText(std::string_view text) : text_(text) {}
    bool take(char c) {
        if (!text_.starts_with(c)) return false;
        text_.remove_prefix(1);
        return true;
    }
    bool at_end() const { return text_.empty(); }
    bool skip_name() {
        const std::size_t end = text_.starts_with('<') ? text_.find('>') : text_.find_first_of("+-,0123456789");
        if (end == 0 || text_.empty()) return false;
        text_.remove_prefix(std::min(text_.size(), end == std::string_view::npos ? end : end + (text_.front() == '<')));
        return true;
    }
    std::optional<int> number() {
        const std::size_t digits = std::min(text_.find_first_not_of("0123456789"), text_.size());
        if (digits == 0 || digits > 4) return std::nullopt;
        int value = 0;
        for (const char c : text_.substr(0, digits)) value = value * 10 + (c - '0');
        text_.remove_prefix(digits);
        return value;
    }
    // [+-]hh[:mm[:ss]]
    std::optional<std::int64_t> time() {
        const bool negative = take('-');
        if (!negative) take('+');
        std::int64_t seconds = 0;
        for (const std::int64_t unit : {3600, 60, 1}) {
            const auto value = number();
            if (!value) return std::nullopt;
            seconds += *value * unit;
            if (unit == 1 || !take(':')) break;
        }
        return negative ? -seconds : seconds;
    }
    bool next_is_sign_or_digit() const { return !text_.empty() && text_.find_first_of("+-0123456789") == 0; }

private:
    std::string_view text_;
};

struct Rule {
    YearlyChange change;
    std::int64_t time = 7200;
};
// ",Mm.w.d[/time]": what is counted by days of the year is not known here; no zone of today does that.
std::optional<Rule> take_rule(ZoneText& text) {
    if (!text.take(',') || !text.take('M')) return std::nullopt;
    const auto month = text.number();
    if (!month || !text.take('.')) return std::nullopt;
    const auto week = text.number();
    if (!week || !text.take('.')) return std::nullopt;
    const auto weekday = text.number();
    if (!weekday || *month < 1 || *month > 12 || *week < 1 || *week > 5 || *weekday > 6) return std::nullopt;
    Rule rule;
    rule.change.month = *month;
    rule.change.nth = *week == 5 ? -1 : *week;
    rule.change.weekday = *weekday;
    if (text.take('/')) {
        const auto time = text.time();
        if (!time || *time < 0 || *time >= kSecondsOfDay) return std::nullopt;
        rule.time = *time;
    }
    return rule;
}

// Appends the two yearly changes of a TZ text, from the last change of the file on.
void take_footer(std::string_view footer, std::vector<Observance>& observances) {
    ZoneText text(footer);
    if (!text.skip_name()) return;
    const auto west = text.time();
    if (!west) return;
    const std::int64_t standard = -*west;
    if (observances.empty())
        observances.push_back({kFirstChange, standard, standard, false, std::nullopt, std::nullopt});
    if (text.at_end() || !text.skip_name()) return;
    std::int64_t summer = standard + 3600;
    if (text.next_is_sign_or_digit()) {
        const auto other = text.time();
        if (!other) return;
        summer = -*other;
    }
    const auto to_daylight = take_rule(text), to_standard = take_rule(text);
    if (!to_daylight || !to_standard) return;
    const std::int64_t last = observances.back().onset;
    const auto append = [&](const Rule& rule, std::int64_t from, std::int64_t to, bool is_daylight) {
        const std::int64_t year = date_of(floor_div(last, kSecondsOfDay)).year;
        std::int64_t onset = yearly_onset(rule.change, rule.time, year);
        if (onset <= last) onset = yearly_onset(rule.change, rule.time, year + 1);
        observances.push_back({onset, from, to, is_daylight, rule.change, std::nullopt});
    };
    append(*to_daylight, standard, summer, true);
    append(*to_standard, summer, standard, false);
}

}  // namespace

std::vector<Observance> parse_tzif(std::string_view bytes) {
    std::string_view rest = bytes;
    if (!take_block(rest, 4)) return {};
    const auto block = take_block(rest, 8);
    if (!block || block->types == 0) return {};
    const std::size_t types_at = block->changes * 9;
    const auto offset = [&](std::size_t type) { return big_endian(block->bytes, types_at + 6 * type, 4); };
    std::vector<Observance> observances;
    std::int64_t from = offset(0);
    for (std::size_t i = 0; i < block->changes; ++i) {
        const auto type = static_cast<std::size_t>(static_cast<unsigned char>(block->bytes[block->changes * 8 + i]));
        const std::int64_t at = big_endian(block->bytes, 8 * i, 8);
        if (type >= block->types) return {};
        const std::int64_t to = offset(type);
        const bool is_daylight = block->bytes[types_at + 6 * type + 4] != 0;
        if (at >= kFirstChange && at < -kFirstChange * 10)
            observances.push_back({at + from, from, to, is_daylight, std::nullopt, std::nullopt});
        from = to;
    }
    if (observances.empty()) observances.push_back({kFirstChange, from, from, false, std::nullopt, std::nullopt});
    if (rest.starts_with('\n')) take_footer(rest.substr(1, rest.find('\n', 1) - 1), observances);
    return observances;
}

std::vector<Observance> read_system_zone(std::string_view olson) {
    if (!is_zone_name(olson)) return {};
    try {
        const os_Fd file = os_open_if_there(std::string(kZoneFolder) + std::string(olson), O_RDONLY | O_NONBLOCK);
        if (!file) return {};
        return parse_tzif(os_read_rest(file.get(), kLargestZoneFile, std::string(olson)));
    } catch (const er_Escape&) {
        er_Accept(9);  // a folder of zones, or a file of another kind
        return {};
    }
}
