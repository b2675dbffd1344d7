// Native O/R names: one scanner finds the fields, everything else works on the places it found.
#include "nm/nm.h"

#include <sys/random.h>
#include <time.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "dstring/ascii.h"

namespace {

constexpr std::size_t kRows = kNmFields.size();

constexpr bool rows_ascend() {
    for (std::size_t i = 1; i < kRows; ++i)
        if (kNmFields[i - 1].number >= kNmFields[i].number) return false;
    return true;
}
static_assert(rows_ascend(), "names are written in this order");

constexpr std::size_t kNoRow = kRows;

std::size_t row_of(int number) {
    const auto* row = std::lower_bound(kNmFields.begin(), kNmFields.end(), number,
                                       [](const nm_FieldRow& field, int wanted) { return field.number < wanted; });
    return row != kNmFields.end() && row->number == number ? static_cast<std::size_t>(row - kNmFields.begin()) : kNoRow;
}

bool same_keyword(std::string_view text, std::string_view keyword) {
    return std::equal(text.begin(), text.end(), keyword.begin(), keyword.end(),
                      [](char a, char b) { return dstring_lower(a) == dstring_lower(b); });
}

// The first row for each first letter of a keyword, and the next row with the same letter.
struct Rows {
    std::array<std::uint8_t, 256> first{};
    std::array<std::uint8_t, kRows> next{};
};
constexpr Rows make_rows() {
    Rows rows;
    rows.first.fill(kRows);
    for (std::size_t row = kRows; row-- > 0;) {
        const char letter = kNmFields[row].keyword[0];
        rows.next[row] = rows.first[static_cast<unsigned char>(letter)];
        rows.first[static_cast<unsigned char>(letter)] = static_cast<std::uint8_t>(row);
        rows.first[static_cast<unsigned char>(dstring_lower(letter))] = static_cast<std::uint8_t>(row);
    }
    return rows;
}
constexpr Rows kRowsByLetter = make_rows();

// The row whose keyword and "=" stand at `at`. The keyword is matched before the delimiter is looked for, so that a
// delimiter that occurs in a keyword does no harm.
std::size_t row_at(std::string_view text, std::size_t at) {
    if (at >= text.size()) return kNoRow;
    for (std::size_t row = kRowsByLetter.first[static_cast<unsigned char>(text[at])]; row != kNoRow;
         row = kRowsByLetter.next[row]) {
        const std::string_view keyword = kNmFields[row].keyword;
        if (at + keyword.size() < text.size() && text[at + keyword.size()] == '=' &&
            same_keyword(text.substr(at, keyword.size()), keyword))
            return row;
    }
    return kNoRow;
}

// The end of the value (or the piece that is none) that begins at `at`: the next delimiter that no backslash precedes.
// Where the delimiter is the backslash itself, a pair of them is one byte of the value and a single one ends it.
std::size_t value_end(std::string_view text, std::size_t at, char delimiter) {
    for (; at < text.size(); ++at) {
        const char c = text[at];
        if (c != delimiter && c != '\\') continue;
        if (c == '\\' && at + 1 < text.size() && (text[at + 1] == '\\' || text[at + 1] == delimiter))
            ++at;
        else if (c == delimiter)
            return at;
    }
    return text.size();
}

// Gives the bytes of an escaped value one after the other.
class ValueBytes {
public:
    ValueBytes(std::string_view text, char delimiter)
        : at_(text.data()), end_(text.data() + text.size()), delimiter_(delimiter) {}
    int next() {  // -1 at the end
        if (at_ == end_) return -1;
        if (*at_ == '\\' && at_ + 1 != end_ && (at_[1] == '\\' || at_[1] == delimiter_)) ++at_;
        return static_cast<unsigned char>(*at_++);
    }

private:
    const char* at_;
    const char* end_;
    char delimiter_;
};

void append_unescaped(std::string& out, std::string_view value, char delimiter) {
    ValueBytes bytes(value, delimiter);
    for (int byte = bytes.next(); byte >= 0; byte = bytes.next()) out.push_back(static_cast<char>(byte));
}

std::string_view value_of(std::string_view text, const NM_PARSE_STATUS::Span& span) {
    return text.substr(span.begin, span.end - span.begin);
}

// Does every backslash escape something, as it would be written?
bool well_escaped(std::string_view value, char delimiter) {
    for (std::size_t at = value.find('\\'); at != std::string_view::npos; at = value.find('\\', at + 2))
        if (at + 1 == value.size() || (value[at + 1] != '\\' && value[at + 1] != delimiter)) return false;
    return true;
}

bool compared(std::size_t row) {
    return kNmFields[row].number != kNmCommonName && kNmFields[row].number != kNmInternetAddress;
}

// Escapes `text` behind `out`.
void append_escaped(std::string& out, std::string_view text, char delimiter) {
    for (;;) {
        std::size_t run = 0;
        while (run < text.size() && text[run] != delimiter && text[run] != '\\') ++run;
        out.append(text.substr(0, run));
        if (run == text.size()) return;
        out.push_back('\\');
        out.push_back(text[run]);
        text.remove_prefix(run + 1);
    }
}

void append_key(std::string& out, std::size_t row, char delimiter) {
    out.push_back(delimiter);
    out.append(kNmFields[row].keyword);
    out.push_back('=');
}

// Writes the name anew in canonical form.
void rewrite(std::string& name, NM_PARSE_STATUS& status) {
    const char delimiter = nm_state().inet_PrimDelim;
    std::string out;
    out.reserve(name.size() + 16);
    for (std::size_t row = 0; row < kRows; ++row) {
        if (status.fields[row].empty()) continue;
        append_key(out, row, delimiter);
        ValueBytes bytes(value_of(name, status.fields[row]), delimiter);
        for (int byte = bytes.next(); byte >= 0; byte = bytes.next()) {
            if (byte == '\\' || static_cast<char>(byte) == delimiter) out.push_back('\\');
            out.push_back(static_cast<char>(byte));
        }
    }
    name = std::move(out);
    status = nm_ParseORN(name);
}

// Where field `row` stands or would stand in a canonical name, key included.
struct Place {
    std::size_t begin, end;
};
Place place_of(const std::string& name, const NM_PARSE_STATUS& status, std::size_t row) {
    const auto key_begin = [&](std::size_t which) {
        return status.fields[which].begin - kNmFields[which].keyword.size() - 2;
    };
    if (!status.fields[row].empty()) return {key_begin(row), status.fields[row].end};
    for (std::size_t later = row + 1; later < kRows; ++later)
        if (!status.fields[later].empty()) return {key_begin(later), key_begin(later)};
    return {name.size(), name.size()};
}

// Two secret words, drawn once a process.
const std::array<std::uint64_t, 2>& hash_secret() {
    static const std::array<std::uint64_t, 2> secret = [] {
        std::array<std::uint64_t, 2> words{0x9E3779B97F4A7C15U, 0xD1B54A32D192ED03U};
        std::array<std::uint64_t, 2> drawn{};
        if (::getrandom(drawn.data(), sizeof drawn, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof drawn)) {
            timespec now{};
            ::clock_gettime(CLOCK_REALTIME, &now);
            drawn = {static_cast<std::uint64_t>(now.tv_nsec), static_cast<std::uint64_t>(now.tv_sec)};
        }
        for (std::size_t i = 0; i < words.size(); ++i) words[i] ^= drawn[i];
        return words;
    }();
    return secret;
}

__extension__ using Wide = unsigned __int128;

// Both halves of the product, so that every bit of the result hangs on every bit of the factors.
std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

bool same_value(std::string_view a, std::string_view b, char delimiter) {
    ValueBytes left(a, delimiter), right(b, delimiter);
    for (;;) {
        const int x = left.next(), y = right.next();
        if (x < 0 || y < 0) return x == y;
        if (dstring_lower(static_cast<char>(x)) != dstring_lower(static_cast<char>(y))) return false;
    }
}

}  // namespace

nm_State& nm_state() {
    static nm_State state;
    return state;
}

void nm_reset() { nm_state() = nm_State(); }

NM_PARSE_STATUS nm_ParseORN(std::string_view pORN) {
    const char delimiter = nm_state().inet_PrimDelim;
    NM_PARSE_STATUS status;
    std::size_t last = kNoRow;  // row of the field before
    std::size_t at = 0;
    if (!pORN.empty() && pORN.front() != delimiter) {
        status.canonical = false;
        at = value_end(pORN, 0, delimiter);
    }
    while (at < pORN.size()) {
        ++at;  // the delimiter
        const std::size_t row = row_at(pORN, at);
        const std::size_t begin = row == kNoRow ? at : at + kNmFields[row].keyword.size() + 1;
        const std::size_t end = value_end(pORN, begin, delimiter);
        if (row == kNoRow || begin == end || (last != kNoRow && row <= last)) status.canonical = false;
        if (row != kNoRow && begin != end) {
            if (status.canonical && (pORN.substr(at, begin - at - 1) != kNmFields[row].keyword ||
                                     !well_escaped(pORN.substr(begin, end - begin), delimiter)))
                status.canonical = false;
            status.fields[row] = {static_cast<std::uint32_t>(begin), static_cast<std::uint32_t>(end)};
            last = row;
        }
        at = end;
    }
    return status;
}

bool nm_has_field(const NM_PARSE_STATUS& status, int number) {
    const std::size_t row = row_of(number);
    return row != kNoRow && !status.fields[row].empty();
}

std::string nm_get_field(std::string_view pORN, const NM_PARSE_STATUS& status, int number) {
    std::string value;
    const std::size_t row = row_of(number);
    if (row == kNoRow) return value;
    append_unescaped(value, value_of(pORN, status.fields[row]), nm_state().inet_PrimDelim);
    return value;
}

void nm_PutFieldStr(std::string& pORN, NM_PARSE_STATUS& status, int number, std::string_view text) {
    const std::size_t row = row_of(number);
    if (row == kNoRow) return;
    if (!status.canonical) rewrite(pORN, status);
    text = text.substr(0, text.find('\0'));

    const Place place = place_of(pORN, status, row);
    if (place.end == pORN.size()) {  // the usual case: it goes to the end
        pORN.resize(place.begin);
        status.fields[row] = {};
        if (!text.empty()) {
            append_key(pORN, row, nm_state().inet_PrimDelim);
            const std::size_t begin = pORN.size();
            append_escaped(pORN, text, nm_state().inet_PrimDelim);
            status.fields[row] = {static_cast<std::uint32_t>(begin), static_cast<std::uint32_t>(pORN.size())};
        }
        if (pORN.size() <= kNativeNameLimit) return;
    } else {
        std::string field;
        if (!text.empty()) {
            append_key(field, row, nm_state().inet_PrimDelim);
            append_escaped(field, text, nm_state().inet_PrimDelim);
        }
        pORN.replace(place.begin, place.end - place.begin, field);
    }
    if (pORN.size() > kNativeNameLimit) pORN.resize(kNativeNameLimit);
    status = nm_ParseORN(pORN);
}

void nm_Writer::begin(int number) {
    const std::size_t row = row_of(number);
    if (row != kNoRow) append_key(out_, row, delimiter_);
}

void nm_Writer::add(std::string_view bytes) { append_escaped(out_, bytes, delimiter_); }

void nm_Writer::put(int number, std::string_view value) {
    if (value.empty()) return;
    begin(number);
    add(value);
}

bool nm_CompareORNs(std::string_view a, std::string_view b) {
    const NM_PARSE_STATUS left = nm_ParseORN(a), right = nm_ParseORN(b);
    const char delimiter = nm_state().inet_PrimDelim;
    for (std::size_t row = 0; row < kRows; ++row)
        if (compared(row) && !same_value(value_of(a, left.fields[row]), value_of(b, right.fields[row]), delimiter))
            return false;
    return true;
}

void nm_key(std::string_view pORN, std::string& key) {
    const NM_PARSE_STATUS status = nm_ParseORN(pORN);
    const char delimiter = nm_state().inet_PrimDelim;
    key.clear();
    for (std::size_t row = 0; row < kRows; ++row) {
        if (!compared(row) || status.fields[row].empty()) continue;
        key.push_back(static_cast<char>(row + 1));
        const std::string_view value = value_of(pORN, status.fields[row]);
        const std::size_t start = key.size();
        key.append(value);
        if (value.find('\\') != std::string_view::npos) {
            key.resize(start);
            append_unescaped(key, value, delimiter);
        }
        for (std::size_t i = start; i < key.size(); ++i) key[i] = dstring_lower(key[i]);
        key.push_back('\0');
    }
}

std::uint64_t nm_hash(std::string_view key) {
    const auto& secret = hash_secret();
    std::uint64_t sum = secret[0] ^ key.size();
    for (; key.size() >= sizeof(std::uint64_t); key.remove_prefix(sizeof(std::uint64_t))) {
        std::uint64_t word = 0;
        std::memcpy(&word, key.data(), sizeof word);
        sum = mix(sum ^ word, secret[1] ^ (sum << 1));
    }
    std::uint64_t word = 0;
    std::memcpy(&word, key.data(), key.size());
    return mix(mix(sum ^ word, secret[1] ^ (sum << 1)), secret[1]);
}
