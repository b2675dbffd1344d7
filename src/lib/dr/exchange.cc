// LDIF and CSV.
//
// LDIF, as it is read here (RFC 2849): records between blank lines, a record being lines "attribute: text",
// "attribute:: base64" and "# comment", a line that begins with a blank continuing the one before it. "version", "dn"
// and "control" are passed over; of the change records only "changetype: add" is taken; values by URL are refused.
//
// CSV (RFC 4180): fields between commas, one record a line; a field in double quotes may hold commas, line ends and,
// doubled, quotes.
#include "dr/exchange.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <istream>
#include <ostream>

#include "dstring/ascii.h"
#include "er/er.h"

namespace dr {

namespace {

constexpr std::string_view kLdifName = "morvaneName";
constexpr std::string_view kCsvName = "name";
constexpr std::size_t kLdifWidth = 76;

constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string to_base64(std::string_view bytes) {
    std::string out;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::size_t held = std::min<std::size_t>(3, bytes.size() - at);
        std::uint32_t word = 0;
        for (std::size_t i = 0; i < 3; ++i)
            word = word << 8 | (i < held ? static_cast<unsigned char>(bytes[at + i]) : 0U);
        for (std::size_t i = 0; i < 4; ++i) out.push_back(i <= held ? kBase64[word >> (18 - 6 * i) & 63U] : '=');
    }
    return out;
}

// False for text that is not base64.
bool from_base64(std::string_view text, std::string& out) {
    out.clear();
    while (!text.empty() && text.back() == '=') text.remove_suffix(1);
    std::uint32_t word = 0;
    unsigned bits = 0;
    for (const char c : text) {
        const std::size_t value = kBase64.find(c);
        if (value == std::string_view::npos) return false;
        word = word << 6 | static_cast<std::uint32_t>(value);
        bits += 6;
        if (bits < 8) continue;
        bits -= 8;
        out.push_back(static_cast<char>(word >> bits & 0xFFU));
    }
    return bits < 6;
}

class LdifReader : public EntryReader {
public:
    explicit LdifReader(std::istream& in) : in_(in) { advance(); }

    bool next(dr_Entry& entry) override {
        entry = {};
        bool any = false;
        while (logical_line()) {
            if (text_.empty()) {
                if (any) return true;
                continue;
            }
            if (text_.front() == '#') continue;
            any |= take(entry);
        }
        return any;
    }

private:
    // The physical line that follows, without its line end.
    void advance() {
        have_ = static_cast<bool>(std::getline(in_, ahead_));
        if (have_ && !ahead_.empty() && ahead_.back() == '\r') ahead_.pop_back();
    }
    // One line with its continuations in text_.
    bool logical_line() {
        if (!have_) return false;
        line_ = ++read_;
        std::swap(text_, ahead_);
        for (advance(); have_ && !ahead_.empty() && ahead_.front() == ' '; advance()) {
            text_.append(ahead_, 1);
            ++read_;
        }
        if (line_ == 1 && text_.starts_with("\xEF\xBB\xBF")) text_.erase(0, 3);
        return true;
    }
    // Takes the line into the entry. False when it is no part of one.
    bool take(dr_Entry& entry) {
        const std::size_t colon = text_.find(':');
        if (colon == std::string::npos || colon == 0) refuse("neither an attribute nor a comment");
        const std::string_view attribute = std::string_view(text_).substr(0, colon);
        const std::string_view rest = std::string_view(text_).substr(colon + 1);
        if (dstring_equal_ignoring_case(attribute, "version") || dstring_equal_ignoring_case(attribute, "control"))
            return false;
        if (dstring_equal_ignoring_case(attribute, "dn")) return true;
        std::string value = value_of(rest);
        if (dstring_equal_ignoring_case(attribute, "changetype")) {
            if (!dstring_equal_ignoring_case(value, "add")) refuse("a change that is not an addition");
        } else if (dstring_equal_ignoring_case(attribute, kLdifName)) {
            if (entry.name.empty()) entry.name = std::move(value);
        } else if (!value.empty()) {
            entry.attributes.emplace_back(attribute, std::move(value));
        }
        return true;
    }
    std::string value_of(std::string_view rest) const {
        const bool encoded = rest.starts_with(':');
        if (rest.starts_with('<')) refuse("a value by URL");
        if (encoded) rest.remove_prefix(1);
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
        if (!encoded) return std::string(rest);
        std::string value;
        while (rest.ends_with(' ')) rest.remove_suffix(1);
        if (!from_base64(rest, value)) refuse("not base64");
        return value;
    }

    std::istream& in_;
    std::string text_, ahead_;
    bool have_ = false;
    std::uint64_t read_ = 0;
};

class CsvReader : public EntryReader {
public:
    explicit CsvReader(std::istream& in) : in_(in) {
        if (!record(columns_)) refuse("no header row");
        if (columns_[0].starts_with("\xEF\xBB\xBF")) columns_[0].erase(0, 3);
        for (std::size_t i = 0; i < columns_.size() && name_ == kNone; ++i)
            if (dstring_equal_ignoring_case(columns_[i], kCsvName)) name_ = i;
        if (name_ == kNone) refuse("no column is called \"name\"");
    }

    bool next(dr_Entry& entry) override {
        entry = {};
        if (!record(fields_)) return false;
        if (fields_.size() > columns_.size()) refuse("more fields than the header row has");
        for (std::size_t i = 0; i < fields_.size(); ++i) {
            if (i == name_)
                entry.name = std::move(fields_[i]);
            else if (!fields_[i].empty() && !columns_[i].empty())
                entry.attributes.emplace_back(columns_[i], std::move(fields_[i]));
        }
        return true;
    }

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
    static constexpr int kEnd = std::char_traits<char>::eof();

    int get() { return in_.rdbuf()->sbumpc(); }
    int peek() { return in_.rdbuf()->sgetc(); }

    // One record that is not a blank line.
    bool record(std::vector<std::string>& fields) {
        do {
            if (peek() == kEnd) return false;
            line_ = ++read_;
            fields.assign(1, {});
            while (field(fields.back())) fields.emplace_back();
        } while (fields.size() == 1 && fields[0].empty());
        return true;
    }
    // One field. True when another follows it in the record.
    bool field(std::string& out) {
        if (peek() == '"') {
            get();
            quoted_field(out);
        }
        for (int c = get();; c = get()) {
            if (c == ',') return true;
            if (c == '\r' && peek() == '\n') continue;
            if (c == '\n' || c == kEnd) return false;
            out.push_back(static_cast<char>(c));
        }
    }
    void quoted_field(std::string& out) {
        for (int c = get();; c = get()) {
            if (c == kEnd) refuse("a quoted field without its end");
            if (c == '"') {
                if (peek() != '"') return;
                get();
            }
            if (c == '\n') ++read_;
            out.push_back(static_cast<char>(c));
        }
    }

    std::istream& in_;
    std::vector<std::string> columns_, fields_;
    std::size_t name_ = kNone;
    std::uint64_t read_ = 0;
};

// May the value stand in an LDIF line as it is (SAFE-STRING)?
bool safe_for_ldif(std::string_view value) {
    if (value.empty() || value.front() == ' ' || value.front() == ':' || value.front() == '<' || value.back() == ' ')
        return false;
    return std::all_of(value.begin(), value.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 0x20 && byte < 0x7F;
    });
}

void write_ldif_line(std::ostream& out, std::string_view attribute, std::string_view value) {
    std::string line(attribute);
    if (safe_for_ldif(value))
        line.append(": ").append(value);
    else
        line.append(":: ").append(to_base64(value));
    out << line.substr(0, kLdifWidth) << '\n';
    for (std::size_t at = kLdifWidth; at < line.size(); at += kLdifWidth - 1)
        out << ' ' << line.substr(at, kLdifWidth - 1) << '\n';
}

void write_csv_field(std::ostream& out, std::string_view value) {
    if (value.find_first_of(",\"\r\n") == std::string_view::npos) {
        out << value;
        return;
    }
    out << '"';
    for (const char c : value) {
        if (c == '"') out << '"';
        out << c;
    }
    out << '"';
}

}  // namespace

void refuse_line(std::uint64_t line, std::string_view why) {
    er_SystemEscape(EINVAL, "line " + std::to_string(line) + ": " + std::string(why));
}

void EntryReader::refuse(std::string_view why) const { refuse_line(line_, why); }

std::unique_ptr<EntryReader> make_reader(std::istream& in, dr_Format format) {
    if (format == dr_Format::csv) return std::make_unique<CsvReader>(in);
    return std::make_unique<LdifReader>(in);
}

void write_ldif_header(std::ostream& out) { out << "version: 1\n"; }

void write_ldif_entry(std::ostream& out, const dr_Entry& entry, std::uint64_t number) {
    out << "\ndn: uid=" << number << '\n';  // LDIF wants a dn; ours have none, and it is not read
    write_ldif_line(out, kLdifName, entry.name);
    for (const auto& [attribute, value] : entry.attributes) write_ldif_line(out, attribute, value);
}

void write_csv_header(std::ostream& out, const std::vector<Column>& columns) {
    out << kCsvName;
    for (const auto& [attribute, count] : columns) {
        for (std::uint64_t i = 0; i < count; ++i) {
            out << ',';
            write_csv_field(out, attribute);
        }
    }
    out << "\r\n";
}

void write_csv_entry(std::ostream& out, const dr_Entry& entry, const std::vector<Column>& columns) {
    write_csv_field(out, entry.name);
    for (const auto& [attribute, count] : columns) {
        std::uint64_t left = count;
        for (const auto& [name, value] : entry.attributes) {
            if (!dstring_equal_ignoring_case(name, attribute) || left == 0) continue;
            out << ',';
            write_csv_field(out, value);
            --left;
        }
        for (; left > 0; --left) out << ',';
    }
    out << "\r\n";
}

}  // namespace dr
