// Properties as text: see property_text.h.
#include "mapi/property_text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <system_error>
#include <utility>

#include "dstring/base64.h"
#include "mapi/names.h"
#include "mim/base64_block.h"

namespace {

constexpr std::string_view kMultipleWord = "multiple-";
constexpr std::int64_t kSecondsOfDay = 86'400;

struct TypeRow {
    mapi_Type type;
    std::string_view word;
};

// The first row of a type is how it is written, the first of a word what it is read as.
constexpr auto kTypes = std::to_array<TypeRow>({
    {mapi_Type::unicode, "unicode"},
    {mapi_Type::string8, "unicode"},
    {mapi_Type::integer16, "integer16"},
    {mapi_Type::integer32, "integer32"},
    {mapi_Type::integer64, "integer64"},
    {mapi_Type::currency, "integer64"},
    {mapi_Type::floating32, "floating32"},
    {mapi_Type::floating64, "floating64"},
    {mapi_Type::floating_time, "floating64"},
    {mapi_Type::boolean, "boolean"},
    {mapi_Type::time, "time"},
    {mapi_Type::guid, "guid"},
    {mapi_Type::binary, "binary"},
    {mapi_Type::error, "error"},
    {mapi_Type::object, "object"},
});

void append_hex32(std::string& out, std::uint32_t value) {
    out += "0x";
    for (int shift = 28; shift >= 0; shift -= 4) out += "0123456789ABCDEF"[value >> shift & 15];
}

template <class Number>
void append_number(std::string& out, Number value) {
    std::array<char, 40> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    out.append(digits.data(), end);
}

// The decimal of a text, as strtof(3) or strtod(3) reads it: their locale is "C" here. from_chars and to_chars for
// these numbers want the mathematics library, which would be loaded with every start of a program.
template <class Number>
Number nearest(const char* text, char** end) {
    if constexpr (sizeof(Number) == sizeof(float))
        return std::strtof(text, end);
    else
        return std::strtod(text, end);
}

// DIGITS, a point behind the first, as a decimal: in whichever form is shorter, without an exponent when both are
// alike.
std::string decimal(std::string digits, int exponent) {
    std::string scientific = digits.substr(0, 1);
    if (digits.size() > 1) scientific.append(".").append(digits, 1);
    const std::string power = std::to_string(std::abs(exponent));
    scientific.append(exponent < 0 ? "e-" : "e+").append(power.size() < 2 ? "0" : "").append(power);
    const auto count = static_cast<int>(digits.size());
    if (exponent < 0)
        digits = std::string("0.").append(static_cast<std::size_t>(-exponent - 1), '0').append(digits);
    else if (exponent + 1 < count)
        digits.insert(digits.begin() + exponent + 1, '.');
    else
        digits.append(static_cast<std::size_t>(exponent + 1 - count), '0');
    return digits.size() <= scientific.size() ? digits : scientific;
}

// The shortest decimal that is the same number.
template <class Number>
void append_floating(std::string& out, Number value) {
    if (std::signbit(value)) out += '-';
    if (!std::isfinite(value)) return void(out += std::isnan(value) ? "nan" : "inf");
    std::array<char, 40> text{};
    constexpr int most_digits = std::numeric_limits<Number>::max_digits10;
    for (int digits = 1; digits <= most_digits; ++digits) {  // "d.ddde+dd"
        std::snprintf(text.data(), text.size(), "%.*e", digits - 1, static_cast<double>(std::fabs(value)));
        if (nearest<Number>(text.data(), nullptr) == std::fabs(value)) break;
    }
    const std::string_view all(text.data());
    const std::size_t e = all.find('e');
    std::string digits(all.substr(0, 1));
    if (e > 2) digits.append(all.substr(2, e - 2));
    std::string shown = decimal(digits, std::atoi(text.data() + e + 1));
    if (shown.find_first_of(".e") == std::string::npos) {  // a whole number is told whole
        std::snprintf(text.data(), text.size(), "%.0f", static_cast<double>(std::fabs(value)));
        shown = text.data();
    }
    out += shown;
}

void append_padded(std::string& out, std::int64_t value, std::size_t width) {
    std::string digits;
    append_number(digits, value);
    if (digits.size() < width) out.append(width - digits.size(), '0');
    out += digits;
}

// --- dates: days since 1970-01-01 of the Gregorian calendar, whose four centuries have 146,097 days -----------------

struct Date {
    std::int64_t year = 0;
    int month = 1, day = 1;
};

constexpr std::int64_t kDaysOfEra = 146'097;
constexpr std::int64_t kDaysTo1970 = 719'468;  // from 0000-03-01, where an era begins

// Years begin in March here, so that the leap day is the last of its year.
constexpr std::int64_t days_of(const Date& date) {
    const std::int64_t year = date.year - (date.month <= 2 ? 1 : 0);
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const std::int64_t year_of_era = year - era * 400;
    const int month_from_march = (date.month + 9) % 12;
    const std::int64_t day_of_year = (153 * month_from_march + 2) / 5 + date.day - 1;
    return era * kDaysOfEra + year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year - kDaysTo1970;
}

constexpr Date date_of(std::int64_t days) {
    days += kDaysTo1970;
    const std::int64_t era = (days >= 0 ? days : days - kDaysOfEra + 1) / kDaysOfEra;
    const std::int64_t day_of_era = days - era * kDaysOfEra;
    const std::int64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36'524 - day_of_era / 146'096) / 365;
    const std::int64_t day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const auto month_from_march = static_cast<int>((5 * day_of_year + 2) / 153);
    Date date;
    date.day = static_cast<int>(day_of_year - (153 * month_from_march + 2) / 5 + 1);
    date.month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
    date.year = year_of_era + era * 400 + (date.month <= 2 ? 1 : 0);
    return date;
}
static_assert(days_of({1970, 1, 1}) == 0 && days_of({1601, 1, 1}) * kSecondsOfDay == -kMapiEpoch);
static_assert(date_of(days_of({2000, 2, 29})).day == 29 && date_of(days_of({4501, 1, 1})).year == 4501);

void append_time(std::string& out, std::int64_t filetime) {
    const std::int64_t seconds = mapi_unix_seconds(filetime);
    const std::int64_t days = (seconds >= 0 ? seconds : seconds - kSecondsOfDay + 1) / kSecondsOfDay;
    const std::int64_t of_day = seconds - days * kSecondsOfDay;
    const Date date = date_of(days);
    if (date.year < 0) out += '-';
    append_padded(out, date.year < 0 ? -date.year : date.year, 4);
    for (const auto& [separator, number] : {std::pair<char, std::int64_t>{'-', date.month},
                                            {'-', date.day},
                                            {'T', of_day / 3600},
                                            {':', of_day / 60 % 60},
                                            {':', of_day % 60}}) {
        out += separator;
        append_padded(out, number, 2);
    }
    out += 'Z';
}

// Text that is taken apart from its front.
class Cursor {
public:
    explicit Cursor(std::string_view text) : text_(text) {}
    bool at_end() const { return text_.empty(); }
    bool take(char c) {
        if (!text_.starts_with(c)) return false;
        text_.remove_prefix(1);
        return true;
    }
    // Digits, `least` to `most` of them.
    std::optional<std::int64_t> take_digits(std::size_t least, std::size_t most) {
        std::int64_t value = 0;
        std::size_t count = 0;
        for (; count < most && count < text_.size() && text_[count] >= '0' && text_[count] <= '9'; ++count)
            value = value * 10 + (text_[count] - '0');
        if (count < least) return std::nullopt;
        text_.remove_prefix(count);
        return value;
    }

private:
    std::string_view text_;
};

constexpr int days_in(const Date& date) {
    const std::int64_t next =
        date.month == 12 ? days_of({date.year + 1, 1, 1}) : days_of({date.year, date.month + 1, 1});
    return static_cast<int>(next - days_of({date.year, date.month, 1}));
}

// "-" month "-" day "T" hour ":" minute ":" second, each of two digits, after the year.
std::optional<std::int64_t> take_rest_of_time(Cursor& in, std::int64_t year) {
    constexpr std::array<char, 5> before = {'-', '-', 'T', ':', ':'};
    constexpr std::array<int, 5> least = {1, 1, 0, 0, 0};
    constexpr std::array<int, 5> most = {12, 31, 23, 59, 59};
    std::array<int, 5> field{};
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (!in.take(before[i])) return std::nullopt;
        const auto number = in.take_digits(2, 2);
        if (!number || *number < least[i] || *number > most[i]) return std::nullopt;
        field[i] = static_cast<int>(*number);
    }
    const Date date{year, field[0], field[1]};
    if (date.day > days_in(date)) return std::nullopt;
    return days_of(date) * kSecondsOfDay + field[2] * 3600 + field[3] * 60 + field[4];
}

// The scale of 64 bits goes from 27,627 BC to 30,828; its first second is cut short by its beginning.
std::optional<std::int64_t> read_time(std::string_view text) {
    constexpr std::int64_t last = std::numeric_limits<std::int64_t>::max() / kMapiTicks;  // seconds since 1601
    Cursor in(text);
    const bool negative = in.take('-');
    const auto year = in.take_digits(4, 5);
    if (!year) return std::nullopt;
    const auto seconds = take_rest_of_time(in, negative ? -*year : *year);
    if (!seconds) return std::nullopt;
    const std::int64_t since_1601 = *seconds + kMapiEpoch;
    if (since_1601 > last || since_1601 < -last - 1) return std::nullopt;
    if (in.take('.') && !in.take_digits(1, 18)) return std::nullopt;
    if (!in.take('Z') || !in.at_end()) return std::nullopt;
    if (since_1601 < -last) return std::numeric_limits<std::int64_t>::min();
    return mapi_time_of(*seconds);
}

// --- values ---------------------------------------------------------------------------------------------------------

void append_escaped(std::string& out, std::string_view text) {
    for (;;) {
        const std::size_t plain = std::min(text.find_first_of("\\\r\n"), text.size());
        out += text.substr(0, plain);
        if (plain == text.size()) return;
        out += text[plain] == '\\' ? "\\\\" : text[plain] == '\r' ? "\\r" : "\\n";
        text.remove_prefix(plain + 1);
    }
}

// Nothing when a backslash stands before anything but "\", "r" and "n".
std::optional<std::string> read_escaped(std::string_view text) {
    std::string out;
    for (;;) {
        const std::size_t plain = std::min(text.find('\\'), text.size());
        out += text.substr(0, plain);
        if (plain == text.size()) return out;
        const char after = plain + 1 < text.size() ? text[plain + 1] : '\0';
        if (after != '\\' && after != 'r' && after != 'n') return std::nullopt;
        out += after == 'r' ? '\r' : after == 'n' ? '\n' : '\\';
        text.remove_prefix(plain + 2);
    }
}

mapi_Guid guid_of(std::string_view bytes) {
    mapi_Guid guid;
    std::copy_n(bytes.begin(), std::min(bytes.size(), guid.bytes.size()), guid.bytes.begin());
    return guid;
}

void append_value(std::string& out, mapi_Type type, const mapi_Value& value, bool escaped) {
    using enum mapi_Type;
    switch (type) {
        case unicode:
        case string8: return escaped ? append_escaped(out, value.bytes) : void(out += value.bytes);
        case boolean: return void(out += value.number != 0 ? "true" : "false");
        case floating32: return append_floating(out, static_cast<float>(value.real));
        case floating64:
        case floating_time: return append_floating(out, value.real);
        case time: return append_time(out, value.number);
        case guid: return void(out += mapi_guid_text(guid_of(value.bytes)));
        case error: return append_hex32(out, static_cast<std::uint32_t>(value.number));
        case binary:
        case object: return dstring_append_base64(out, value.bytes);
        default: return append_number(out, value.number);
    }
}

template <class Number>
std::optional<Number> read_whole(std::string_view text, auto... how) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, how...);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

template <class Number>
std::optional<mapi_Value> read_integer(std::string_view text) {
    const auto number = read_whole<Number>(text);
    if (!number) return std::nullopt;
    return mapi_Value{.number = *number, .bytes = {}};
}

// A sign is a "-", and what is too large, or too small to be told from 0, is none.
template <class Number>
std::optional<mapi_Value> read_floating(std::string_view text) {
    constexpr std::string_view not_decimal = "xXpP(";
    if (text.empty() || text.find_first_of(not_decimal) != std::string_view::npos) return std::nullopt;
    const char first = text.front() == '-' && text.size() > 1 ? text[1] : text.front();
    if (first <= ' ' || first == '+') return std::nullopt;
    const std::string digits(text);
    char* end = nullptr;
    errno = 0;
    const auto number = nearest<Number>(digits.c_str(), &end);
    if (end != digits.c_str() + digits.size()) return std::nullopt;
    if (errno == ERANGE && (number == 0 || std::isinf(number))) return std::nullopt;
    return mapi_Value{.real = number, .bytes = {}};
}

std::optional<mapi_Value> number_of(std::optional<std::int64_t> number) {
    if (!number) return std::nullopt;
    return mapi_Value{.number = *number, .bytes = {}};
}

std::optional<mapi_Value> bytes_of(std::optional<std::string> bytes) {
    if (!bytes) return std::nullopt;
    return mapi_Value{.bytes = std::move(*bytes)};
}

std::optional<std::int64_t> read_error(std::string_view text) {
    const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
    const auto value = is_hex ? read_whole<std::uint32_t>(text.substr(2), 16) : read_whole<std::uint32_t>(text);
    if (!value) return std::nullopt;
    return *value;
}

std::optional<mapi_Value> read_guid_value(std::string_view text) {
    const auto guid = mapi_read_guid(text);
    if (!guid) return std::nullopt;
    return mapi_Value{.bytes = std::string(guid->bytes.begin(), guid->bytes.end())};
}

std::optional<mapi_Value> read_value(mapi_Type type, std::string_view text, bool escaped) {
    using enum mapi_Type;
    switch (type) {
        case unicode: return bytes_of(escaped ? read_escaped(text) : std::string(text));
        case integer16: return read_integer<std::int16_t>(text);
        case integer32: return read_integer<std::int32_t>(text);
        case integer64: return read_integer<std::int64_t>(text);
        case floating32: return read_floating<float>(text);
        case floating64: return read_floating<double>(text);
        case boolean:
            if (text != "true" && text != "false") return std::nullopt;
            return mapi_Value{.number = text == "true" ? 1 : 0, .bytes = {}};
        case time: return number_of(read_time(text));
        case guid: return read_guid_value(text);
        case error: return number_of(read_error(text));
        case binary:
        case object: return bytes_of(mapi_read_base64(text));
        default: return std::nullopt;
    }
}

// Length of the first of several values: up to a "\;" whose backslash is not itself escaped.
std::size_t first_value(std::string_view text) {
    for (std::size_t at = 0; (at = text.find('\\', at)) != text.npos; at += 2)
        if (at + 1 < text.size() && text[at + 1] == ';') return at;
    return text.size();
}

std::optional<std::vector<mapi_Value>> read_values(mapi_Type type, std::string_view text) {
    std::vector<mapi_Value> values;
    while (!text.empty()) {
        const std::size_t length = first_value(text);
        auto value = read_value(type, text.substr(0, length), true);
        if (!value) return std::nullopt;
        values.push_back(std::move(*value));
        if (length == text.size()) return values;
        text.remove_prefix(length + 2);
        if (!text.empty()) continue;
        value = read_value(type, text, true);  // an empty one at the end
        if (!value) return std::nullopt;
        values.push_back(std::move(*value));
    }
    return values;
}

// --- names and types ------------------------------------------------------------------------------------------------

// "0x0037001F": the identifier counts; the type word says the type.
std::optional<mapi_Property> read_tag(std::string_view name) {
    if (name.size() != 10 || !(name.starts_with("0x") || name.starts_with("0X"))) return std::nullopt;
    const auto tag = read_whole<std::uint32_t>(name.substr(2), 16);
    if (!tag) return std::nullopt;
    mapi_Property property;
    property.id = static_cast<std::uint16_t>(*tag >> 16);
    return property;
}

bool read_type(std::string_view word, mapi_Property& property) {
    property.multiple = word.starts_with(kMultipleWord);
    if (property.multiple) word.remove_prefix(kMultipleWord.size());
    const auto row = std::find_if(kTypes.begin(), kTypes.end(), [&](const TypeRow& r) { return r.word == word; });
    if (row == kTypes.end()) return false;
    property.type = row->type;
    return true;
}

}  // namespace

std::string mapi_name_text(const mapi_Property& property) {
    std::string text(mapi_canonical_name(property));
    if (text.empty()) append_hex32(text, property.tag());
    return text;
}

std::string mapi_type_text(const mapi_Property& property) {
    const auto row =
        std::find_if(kTypes.begin(), kTypes.end(), [&](const TypeRow& r) { return r.type == property.type; });
    std::string text(property.multiple ? kMultipleWord : "");
    return text += row == kTypes.end() ? "binary" : row->word;
}

std::string mapi_value_text(const mapi_Property& property, bool escaped) {
    std::string text;
    for (std::size_t i = 0; i < property.values.size(); ++i) {
        if (i != 0) text += "\\;";
        append_value(text, property.type, property.values[i], escaped || property.multiple);
    }
    return text;
}

void mapi_append_line(std::string& out, const mapi_Property& property) {
    out += mapi_name_text(property);
    out += ':';
    out += mapi_type_text(property);
    out += '=';
    out += mapi_value_text(property);
    out += '\n';
}

std::optional<mapi_Property> mapi_read_property(std::string_view name, std::string_view type, std::string_view value,
                                                bool escaped) {
    std::optional<mapi_Property> property = mapi_find_name(name);
    if (!property) property = read_tag(name);
    if (!property || !read_type(type, *property)) return std::nullopt;
    if (property->multiple) {
        auto values = read_values(property->type, value);
        if (!values) return std::nullopt;
        property->values = std::move(*values);
        return property;
    }
    auto one = read_value(property->type, value, escaped);
    if (!one) return std::nullopt;
    property->values.push_back(std::move(*one));
    return property;
}

std::optional<mapi_Property> mapi_read_line(std::string_view line) {
    if (line.ends_with('\n')) line.remove_suffix(1);
    const std::size_t colon = line.find(':');
    const std::size_t equals = line.find('=');
    if (colon == line.npos || equals == line.npos || equals < colon) return std::nullopt;
    return mapi_read_property(line.substr(0, colon), line.substr(colon + 1, equals - colon - 1),
                              line.substr(equals + 1));
}

std::optional<std::string> mapi_read_base64(std::string_view text) {
    std::string out;
    unsigned held = 0, bits = 0, pads = 0;
    std::size_t characters = 0;
    for (const char c : text) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
        const std::uint8_t value = kBase64Values[static_cast<unsigned char>(c)];
        if (value == kBase64Skip || (value != kBase64Pad && pads != 0)) return std::nullopt;
        ++characters;
        if (value == kBase64Pad) {
            ++pads;
            continue;
        }
        held = held << 6 | value;
        bits += 6;
        if (bits < 8) continue;
        bits -= 8;
        out += static_cast<char>(held >> bits & 0xFF);
    }
    if (characters % 4 != 0 || pads > 2) return std::nullopt;
    return out;
}
