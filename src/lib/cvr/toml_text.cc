// Checking TOML text: see toml_text.h. Outside strings and comments everything is ASCII, and "[" or "[[" at the start of a
// line is followed by a key.
#include "cvr/toml_text.h"

#include <algorithm>

namespace {

bool is_blank(char c) { return c == ' ' || c == '\t'; }

bool begins_key(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '"' ||
           c == '\'';
}

class Scanner {
public:
    explicit Scanner(std::string_view text) : text_(text) {}

    std::optional<TomlComplaint> run() {
        while (at_ < text_.size()) {
            const char c = text_[at_];
            if (static_cast<unsigned char>(c) >= 0x80) return complaint("only strings and comments hold such characters");
            if (c == '[' && at_line_start_ && !is_header()) return complaint("the name of a table is wanted");
            if (c == '\n') {
                step();
                at_line_start_ = true;
                continue;
            }
            at_line_start_ = at_line_start_ && is_blank(c);
            skip(c);
        }
        return std::nullopt;
    }

private:
    TomlComplaint complaint(const char* what) const { return {line_, what}; }

    void step() {
        if (text_[at_] == '\n') ++line_;
        ++at_;
    }
    void step_to(std::size_t end) {
        while (at_ < std::min(end, text_.size())) step();
    }

    bool is_header() const {
        std::size_t at = at_ + 1;
        if (at < text_.size() && text_[at] == '[') ++at;
        while (at < text_.size() && is_blank(text_[at])) ++at;
        return at < text_.size() && begins_key(text_[at]);
    }

    void skip(char c) {
        if (c == '#')
            step_to(text_.find('\n', at_));
        else if (c == '"' || c == '\'')
            skip_string(c);
        else
            step();
    }

    // A string of one line, or of several when its mark stands three times. One that does not end runs to the end of
    // its line, or of the text: the parser refuses it.
    void skip_string(char mark) {
        const std::string triple(3, mark);
        const bool long_one = text_.substr(at_).starts_with(triple);
        step_to(at_ + (long_one ? 3 : 1));
        while (at_ < text_.size()) {
            const bool ends = long_one ? text_.substr(at_).starts_with(triple) : text_[at_] == mark;
            if (ends) return step_to(at_ + (long_one ? 3 : 1));
            if (!long_one && text_[at_] == '\n') return;
            step_to(at_ + (mark == '"' && text_[at_] == '\\' ? 2 : 1));
        }
    }

    std::string_view text_;
    std::size_t at_ = 0;
    unsigned line_ = 1;
    bool at_line_start_ = true;
};

}  // namespace

std::optional<TomlComplaint> check_toml_text(std::string_view text) {
    constexpr std::string_view kSignature = "\xEF\xBB\xBF";
    if (text.starts_with(kSignature)) text.remove_prefix(kSignature.size());
    return Scanner(text).run();
}
