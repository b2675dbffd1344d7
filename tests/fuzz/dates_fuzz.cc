// Dates from foreign headers. Whatever is accepted must mean the same written in full, in another case, and with noise
// around it that the scanner passes over.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ux_in/dates.h"

namespace {

void require(bool held) {
    if (!held) std::abort();
}

// The date in the form of RFC 5322, when it has one: within the years and zones that the form can say.
std::string in_full(const ux_Date& date) {
    const std::int64_t local = std::int64_t{static_cast<std::uint32_t>(date.GMTTime)} + date.TimeZone * 60;
    constexpr std::int64_t end_of_2069 = 3155760000;
    if (local < 0 || local >= end_of_2069 || std::abs(date.TimeZone) > 99 * 60 + 59) return {};
    const std::chrono::sys_days day{std::chrono::days(local / 86400)};
    const std::chrono::year_month_day ymd(day);
    static const char* const names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const int second = static_cast<int>(local % 86400);
    const int zone = std::abs(date.TimeZone);
    char text[64];
    std::snprintf(text, sizeof text, "%u %s %d %02d:%02d:%02d %c%02d%02d", static_cast<unsigned>(ymd.day()),
                  names[static_cast<unsigned>(ymd.month()) - 1], static_cast<int>(ymd.year()), second / 3600,
                  second / 60 % 60, second % 60, date.TimeZone < 0 ? '-' : '+', zone / 60, zone % 60);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const auto zone = static_cast<std::int16_t>(data[0] << 8 | data[1]);
    const std::string text(reinterpret_cast<const char*>(data) + 2, size - 2);
    const auto date = ux_InParseDate(text, zone);

    require(ux_InParseDate(" ,\t" + text + "\x80 [x] ", zone) == date);
    std::string folded = text;
    std::ranges::transform(folded, folded.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c | 0x20) : c; });
    require(ux_InParseDate(folded, zone) == date);
    if (!date) return 0;
    const std::string full = in_full(*date);
    if (!full.empty()) require(ux_InParseDate(full, 77) == date);
    return 0;
}
