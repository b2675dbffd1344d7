// Header fields with parameters: see msl.h. A field is cut into sections in one pass; their values are made when they
// are asked for.
#include "msl/msl.h"

#include <algorithm>

#include "ccs/ccs.h"
#include "dstring/ascii.h"
#include "er/er.h"
#include "inet/subject.h"
#include "mim/mim.h"

namespace {

constexpr std::size_t kMostDigits = 3;      // of a section's number
constexpr std::size_t kLongestLabel = 100;  // characters of a set's or a language's name

constexpr bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

// token of RFC 2045, section 5.1
constexpr bool is_name_character(char c) {
    return c > 0x20 && c < 0x7F && std::string_view("()<>@,;:\\\"/[]?=").find(c) == std::string_view::npos;
}

bool is_name(std::string_view word) {
    return !word.empty() && std::all_of(word.begin(), word.end(), is_name_character);
}

int hex_value(char c) {
    if (is_digit(c)) return c - '0';
    const char lower = dstring_lower(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string percent_decoded(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const int high = text[at] == '%' && at + 2 < text.size() ? hex_value(text[at + 1]) : -1;
        const int low = high >= 0 ? hex_value(text[at + 2]) : -1;
        out += low >= 0 ? static_cast<char>(high << 4 | low) : text[at];
        if (low >= 0) at += 2;
    }
    return out;
}

// What the stars of a parameter's name say (RFC 2231, sections 3 and 4): "name*", "name*1", "name*1*".
struct Stars {
    std::size_t name_length;
    int number = -1;
    bool starred = false;
    bool extended = false;
};

std::optional<Stars> read_stars(std::string_view name) {
    const std::size_t star = name.find('*');
    if (star == std::string_view::npos) return Stars{name.size()};
    if (star == 0) return std::nullopt;
    std::string_view digits = name.substr(star + 1);
    if (digits.empty()) return Stars{star, -1, true, true};
    const bool extended = digits.ends_with('*');
    if (extended) digits.remove_suffix(1);
    if (digits.empty() || digits.size() > kMostDigits || !std::all_of(digits.begin(), digits.end(), is_digit))
        return std::nullopt;
    int number = 0;
    for (const char c : digits) number = number * 10 + (c - '0');
    return Stars{star, number, true, extended};
}

// charset "'" language "'" text, at the start of the first section. Without two apostrophes all of it is text.
void take_labels(std::string& text, msl_Parameter& parameter) {
    const std::size_t first = text.find('\'');
    const std::size_t second = first > kLongestLabel ? std::string::npos : text.find('\'', first + 1);
    if (second == std::string::npos || second - first > kLongestLabel) return;
    parameter.charset = mim_SpaceTrimming(std::string_view(text).substr(0, first));
    parameter.language = text.substr(first + 1, second - first - 1);
    text.erase(0, second + 1);
    if (text.size() >= 2) text = mim_RemoveQuotes(text);  // utf-8''"a%20b": quotes that should not be there
}

bool holds_encoded_word(std::string_view text) {
    const std::size_t at = text.find("=?");
    return at != std::string_view::npos && text.find("?=", at + 2) != std::string_view::npos;
}

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = er_utf8_length(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string_view likely_set(std::string_view text) {
    if (ccs_Is7BitAscii(text)) return kAsciiSet;
    return is_utf8(text) ? kUtf8Set : std::string_view();
}

// Text in a set that nobody knows, but nothing in it tells it from ASCII: most likely it is.
bool is_plain(const msl_Parameter& parameter) {
    return ccs_GetCSDescriptor2(parameter.charset) == nullptr &&
           inet_Subject_toRfc2047_dstring(parameter.value, kAsciiSet, kShorterMethod) == parameter.value;
}

}  // namespace

class msl_FieldReader {
public:
    explicit msl_FieldReader(msl_Field& field) : field_(field), text_(field.text_) {}

    void read() {
        read_head();
        while (at_ < text_.size() && field_.sections_.size() < kMostParameters) read_parameter();
    }

private:
    // The words before a "=", a ";" or the end. Of "attachment filename=x" the last word is a name.
    struct Words {
        std::string text;                // without comments
        std::size_t before_last = 0;     // how much of `text` stands before the last word
        std::size_t begin = 0, end = 0;  // the last word in the field
    };

    bool at(char c) const { return at_ < text_.size() && text_[at_] == c; }
    // Passes a comment, which nests (RFC 822, section 3.4.3). One that is not closed ends the search for comments: else
    // each of many opening parentheses would be a search to the end.
    bool pass_comment() {
        if (!at('(') || no_more_comments_) return false;
        std::size_t depth = 0;
        for (std::size_t i = at_; i < text_.size(); ++i) {
            if (text_[i] == '\\') {
                ++i;
            } else if (text_[i] == '(') {
                ++depth;
            } else if (text_[i] == ')' && --depth == 0) {
                at_ = i + 1;
                return true;
            }
        }
        no_more_comments_ = true;
        return false;
    }
    void skip_blanks_and_comments() {
        while (at_ < text_.size()) {
            if (pass_comment()) continue;
            if (!is_blank(text_[at_])) return;
            ++at_;
        }
    }

    Words take_words() {
        Words words;
        bool in_word = false;
        while (at_ < text_.size() && !at('=') && !at(';')) {
            const bool gap = pass_comment();
            if (gap || is_blank(text_[at_])) {
                at_ += gap ? 0 : 1;
                words.text += ' ';
                in_word = false;
                continue;
            }
            if (!in_word) words.before_last = words.text.size(), words.begin = at_;
            in_word = true;
            words.text += text_[at_++];
            words.end = at_;
        }
        return words;
    }

    void read_head() {
        Words words = take_words();
        if (at('=') && is_name(last_word(words))) {
            set_value(std::string_view(words.text).substr(0, words.before_last));
            return take_parameter(words);
        }
        const std::size_t rest = at_;
        skip_to_semicolon();
        set_value(words.text.append(text_.substr(rest, at_ - rest)));
    }
    void read_parameter() {
        if (at(';')) ++at_;
        const Words words = take_words();
        if (at('=') && is_name(last_word(words))) return take_parameter(words);
        skip_to_semicolon();
    }

    std::string_view last_word(const Words& words) const { return text_.substr(words.begin, words.end - words.begin); }
    void set_value(std::string_view text) { field_.value_ = mim_RemoveQuotes(mim_SpaceTrimming(text)); }
    void skip_to_semicolon() { at_ = std::min(text_.find(';', at_), text_.size()); }

    // From "=" to the end of the value.
    void take_parameter(const Words& words) {
        ++at_;
        skip_blanks_and_comments();
        const std::size_t begin = at_;
        const std::size_t end = pass_quoted() ? at_ : pass_unquoted();
        const auto stars = read_stars(last_word(words));
        if (!stars) return;
        field_.sections_.push_back({words.begin, words.begin + stars->name_length, begin, end, stars->number,
                                    stars->starred, stars->extended});
    }
    bool pass_quoted() {
        if (!at('"')) return false;
        for (std::size_t i = at_ + 1; i < text_.size(); ++i) {
            if (text_[i] == '\\' && i + 1 < text_.size() && (text_[i + 1] == '"' || text_[i + 1] == '\\')) {
                ++i;
            } else if (text_[i] == '"') {
                at_ = i + 1;
                return true;
            }
        }
        return false;
    }
    // Returns where the value ends: before blanks and comments that nothing follows.
    std::size_t pass_unquoted() {
        std::size_t end = at_;
        while (at_ < text_.size() && !at(';')) {
            if (pass_comment()) continue;
            if (!is_blank(text_[at_])) end = at_ + 1;
            ++at_;
        }
        return end;
    }

    msl_Field& field_;
    std::string_view text_;
    std::size_t at_ = 0;
    bool no_more_comments_ = false;
};

msl_Field::msl_Field(std::string_view text) : text_(text) { msl_FieldReader(*this).read(); }

// The sections of a parameter in their order, each number once. One value without sections goes before any sections.
std::vector<const msl_Field::Section*> msl_Field::sections(std::string_view name, bool starred) const {
    std::vector<const Section*> found;
    for (const Section& section : sections_) {
        const auto its_name = std::string_view(text_).substr(section.name_begin, section.name_end - section.name_begin);
        if (section.starred == starred && dstring_equal_ignoring_case(its_name, name)) found.push_back(&section);
    }
    std::ranges::stable_sort(found, {}, &Section::number);
    const auto same = [](const Section* one, const Section* other) { return one->number == other->number; };
    found.erase(std::unique(found.begin(), found.end(), same), found.end());
    if (!found.empty() && found.front()->number == kNoSections) found.resize(1);
    return found;
}

// Without quotes and escapes, and without the line ends of a field that is still folded.
std::string msl_Field::text_of(const Section& section) const {
    std::string_view raw = std::string_view(text_).substr(section.value_begin, section.value_end - section.value_begin);
    const bool quoted = raw.starts_with('"');
    if (quoted) raw.remove_prefix(1);
    std::string out;
    for (std::size_t at = 0; at < raw.size(); ++at) {
        const bool escape = quoted && raw[at] == '\\' && at + 1 < raw.size();
        if (escape && (raw[at + 1] == '"' || raw[at + 1] == '\\'))
            out += raw[++at];
        else if (quoted && raw[at] == '"')
            break;
        else if (raw[at] != '\r' && raw[at] != '\n')
            out += raw[at];
    }
    return out;
}

std::optional<msl_Parameter> msl_Field::parameter(std::string_view name) const {
    const bool starred = name.ends_with('*');
    if (starred) name.remove_suffix(1);
    const std::vector<const Section*> found = sections(name, starred);
    if (found.empty()) return std::nullopt;
    const Section& first = *found.front();
    msl_Parameter parameter{{}, {}, {}, first.name_begin, first.value_begin, first.value_end};
    std::string encoded;  // sections that belong together: an escape may begin in one and end in the next
    for (const Section* section : found) {
        std::string text = text_of(*section);
        if (!section->extended) {
            parameter.value.append(percent_decoded(encoded)).append(text);
            encoded.clear();
            continue;
        }
        if (section == &first) take_labels(text, parameter);
        encoded += text;
    }
    parameter.value += percent_decoded(encoded);
    return parameter;
}

std::string msl_convert2231to2047(const msl_Parameter& parameter) {
    if (parameter.charset.empty() && holds_encoded_word(parameter.value)) return parameter.value;
    if (is_plain(parameter)) return parameter.value;
    const std::string_view set = parameter.charset.empty() ? likely_set(parameter.value) : parameter.charset;
    return inet_Subject_toRfc2047_dstring(parameter.value, set, kShorterMethod);
}

msl_Header msl_newHeader() { return {}; }

void msl_addMimeHeader(msl_Header& header, msl_FieldCode code, std::string_view text) {
    (code == msl_FieldCode::content_type ? header.content_type : header.content_disposition) = msl_Field(text);
}

const msl_Field& msl_field(const msl_Header& header, msl_FieldCode code) {
    return code == msl_FieldCode::content_type ? header.content_type : header.content_disposition;
}

const std::string& msl_getMimeHeader(const msl_Header& header, msl_FieldCode code) {
    return msl_field(header, code).value();
}
