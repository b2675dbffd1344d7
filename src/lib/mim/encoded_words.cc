// Decoding of encoded words: see encoded_words.h. The text is split into runs first: words that belong together, and
// what stands between them. Only then is anything converted.
#include "mim/encoded_words.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "ccs/ccs.h"
#include "cvc/cvc.h"
#include "cvc/utf8.h"

namespace {

constexpr std::size_t kCharsetLimit = 39;  // characters of a charset that is reported

// One or more words in one set, or other text (then `charset` is empty).
struct Run {
    std::string_view source;  // as it stands in the text
    std::string_view gap;     // white space before a word that follows a word; drops out when both are decoded
    std::string_view charset;
    std::string bytes;
    bool is_word() const { return !charset.empty(); }
};

struct Word {
    std::string_view charset;
    bool base64 = false;
    std::string_view text;
    std::size_t length = 0;  // in the source, "=?" and "?=" included
};

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool all_blank(std::string_view text) { return std::all_of(text.begin(), text.end(), is_blank); }

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

std::string decode_q(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const int high = text[at] == '=' && at + 2 < text.size() ? hex_value(text[at + 1]) : -1;
        const int low = high >= 0 ? hex_value(text[at + 2]) : -1;
        if (low >= 0) {
            out += static_cast<char>(high << 4 | low);
            at += 2;
        } else {
            out += text[at] == '_' ? ' ' : text[at];
        }
    }
    return out;
}

int base64_value(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

// Other characters are skipped; padding ends a group, and data after it goes on with a new one.
std::string decode_b(std::string_view text) {
    std::string out;
    out.reserve(text.size() / 4 * 3 + 3);
    unsigned bits = 0;
    int count = 0;
    for (const char c : text) {
        const int value = base64_value(c);
        if (c == '=') count = 0;
        if (value < 0) continue;
        bits = bits << 6 | static_cast<unsigned>(value);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        out += static_cast<char>(bits >> count);
    }
    return out;
}

// Finds words from front to back. A "=?" that begins none costs a look at a few characters, not at the rest of the
// text.
class WordFinder {
public:
    explicit WordFinder(std::string_view text) : text_(text) {}

    // The next word from `from` on, and where it begins.
    std::optional<Word> next(std::size_t from, std::size_t& begin) {
        for (begin = text_.find("=?", from); begin != std::string_view::npos; begin = text_.find("=?", begin + 1))
            if (auto word = word_at(begin)) return word;
        return std::nullopt;
    }

private:
    static constexpr std::size_t kLabelLimit = 80;  // of charset and language; no real one comes near

    std::optional<Word> word_at(std::size_t begin) {
        const std::string_view label = text_.substr(begin + 2, kLabelLimit);
        const std::size_t mark = label.find('?');
        if (mark == std::string_view::npos) return std::nullopt;
        Word word;
        word.charset = trimmed(label.substr(0, mark));
        word.charset = word.charset.substr(0, word.charset.find('*'));
        if (word.charset.empty() || std::any_of(word.charset.begin(), word.charset.end(), is_blank))
            return std::nullopt;
        std::size_t at = skip_blanks(begin + 2 + mark + 1);
        if (at >= text_.size()) return std::nullopt;
        const char method = text_[at];
        word.base64 = method == 'B' || method == 'b';
        if (!word.base64 && method != 'Q' && method != 'q') return std::nullopt;
        at = skip_blanks(at + 1);
        if (at >= text_.size() || text_[at] != '?') return std::nullopt;
        const std::size_t end = terminator(at + 1);
        if (end == std::string_view::npos) return std::nullopt;
        word.text = text_.substr(at + 1, end - at - 1);
        word.length = end + 2 - begin;
        return word;
    }

    std::size_t skip_blanks(std::size_t at) const {
        for (int most = 8; most > 0 && at < text_.size() && is_blank(text_[at]); --most) ++at;
        return at;
    }

    // The first "?=" at or after `at`. The last answer is kept: looking again from before it would find it again.
    std::size_t terminator(std::size_t at) {
        if (!known_ || (terminator_ != std::string_view::npos && terminator_ < at)) terminator_ = text_.find("?=", at);
        known_ = true;
        return terminator_;
    }

    std::string_view text_;
    std::size_t terminator_ = 0;
    bool known_ = false;
};

std::string_view span_of(std::string_view first, std::string_view last) {
    return {first.data(), static_cast<std::size_t>(last.data() + last.size() - first.data())};
}

std::vector<Run> split(std::string_view text) {
    std::vector<Run> runs;
    WordFinder finder(text);
    std::size_t at = 0, begin = 0;
    while (const auto word = finder.next(at, begin)) {
        const std::string_view between = text.substr(at, begin - at), source = text.substr(begin, word->length);
        const bool follows = !runs.empty() && runs.back().is_word() && all_blank(between);
        if (!between.empty() && !follows) runs.push_back({between, {}, {}, {}});
        std::string bytes = word->base64 ? decode_b(word->text) : decode_q(word->text);
        if (follows && ccs_same_set(runs.back().charset, word->charset)) {
            runs.back().bytes += bytes;
            runs.back().source = span_of(runs.back().source, source);
        } else {
            runs.push_back({source, follows ? between : std::string_view{}, word->charset, std::move(bytes)});
        }
        at = begin + word->length;
    }
    if (at < text.size()) runs.push_back({text.substr(at), {}, {}, {}});
    return runs;
}

// As cvc_ConvertString, but bytes that are called UTF-8 are looked at even when nothing is to be done to them.
int convert_checked(std::string_view bytes, std::string_view from, std::string_view to, std::string& out) {
    const bool unchecked = ccs_same_set(from, to) && ccs_same_set(to, kUtf8Set);
    if (unchecked && check_utf8(bytes).valid != bytes.size()) return kNotInSet;
    return cvc_ConvertString(bytes, from, to, out);
}

// Converts the bytes of a word. Mail that is wrong about itself is forgiven in two ways: a character that was cut off
// at the end is dropped, and bytes that are not in the set but are UTF-8 are UTF-8.
bool convert_word(std::string_view bytes, std::string_view from, std::string_view to, std::string& out,
                  bool& lossless) {
    constexpr std::size_t kLongestRest = 3;
    int result = convert_checked(bytes, from, to, out);
    if (result == kNotInSet) result = convert_checked(bytes, kUtf8Set, to, out);
    for (std::size_t cut = 1; result == kNotInSet && cut <= kLongestRest && cut < bytes.size(); ++cut)
        result = convert_checked(bytes.substr(0, bytes.size() - cut), from, to, out);
    lossless = result == kConverted;
    return cvc_is_usable(result);
}

// The set of the first word; text without words has none.
std::string_view declared_set(const std::vector<Run>& runs) {
    const auto first = std::find_if(runs.begin(), runs.end(), [](const Run& run) { return run.is_word(); });
    return first == runs.end() ? std::string_view{} : first->charset;
}

// Text between words. It should be ASCII, which may have to be written in another way ("~" is "~~" in HZ); bytes that
// are not are taken to be in the set of the first word.
bool convert_plain(std::string_view text, std::string_view declared, std::string_view to, std::string& out) {
    const bool is_ascii = ccs_Is7BitAscii(text);
    const ccs_Descriptor* set = ccs_GetCSDescriptor2(to);
    bool lossless = true;
    if (is_ascii ? set == nullptr || set->ascii : ccs_same_set(declared, to)) {
        out = text;
        return true;
    }
    return convert_word(text, is_ascii ? kAsciiSet : declared.empty() ? kUtf8Set : declared, to, out, lossless);
}

// All runs in one set; nothing when one cannot be converted, or a word not without loss when that is asked for.
std::optional<std::string> all_in(const std::vector<Run>& runs, std::string_view to, bool must_be_lossless) {
    const std::string_view declared = declared_set(runs);
    std::string out, piece;
    for (const Run& run : runs) {
        bool lossless = true;
        if (run.is_word() && ccs_same_set(run.charset, to)) {
            out += run.bytes;
            continue;
        }
        const bool converts = run.is_word() ? convert_word(run.bytes, run.charset, to, piece, lossless)
                                            : convert_plain(run.source, declared, to, piece);
        if (!converts || (must_be_lossless && !lossless)) return std::nullopt;
        out += piece;
    }
    return out;
}

std::string bytes_of(const std::vector<Run>& runs) {
    std::string out;
    for (const Run& run : runs) out += run.is_word() ? std::string_view(run.bytes) : run.source;
    return out;
}

std::string declared_name(std::string_view charset) {
    return std::string(ccs_native_name(charset).substr(0, kCharsetLimit));
}

mim_DecodedText in_declared_set(const std::vector<Run>& runs) {
    const std::string declared = declared_name(declared_set(runs));
    if (declared.empty()) {
        std::string text = bytes_of(runs);
        std::string charset(ccs_Is7BitAscii(text) ? kAsciiSet : std::string_view{});
        return {std::move(text), charset, charset};
    }
    if (auto text = all_in(runs, declared, true)) return {std::move(*text), declared, declared};
    if (auto text = all_in(runs, kUtf8Set, true)) return {std::move(*text), std::string(kUtf8Set), declared};
    return {bytes_of(runs), declared, declared};
}

}  // namespace

mim_DecodedText mim_2047_to_string_and_cset_dstring(std::string_view encoded, std::string_view charset) {
    const std::vector<Run> runs = split(encoded);
    if (charset == kDecodeIt) return in_declared_set(runs);
    if (auto text = all_in(runs, charset, false)) {
        const std::string declared = declared_name(declared_set(runs));
        std::string target(charset.substr(0, kCharsetLimit));
        return {std::move(*text), target, declared.empty() ? target : declared};
    }
    mim_DecodedText as_encoded = in_declared_set(runs);
    as_encoded.converted = false;
    return as_encoded;
}

std::string mim_DecodeMimeCharStr(std::string_view text, std::string_view charset) {
    std::string out, piece;
    bool follows_decoded = false;
    for (const Run& run : split(text)) {
        bool lossless = true;
        const bool converts = run.is_word() && convert_word(run.bytes, run.charset, charset, piece, lossless);
        if (!converts || !follows_decoded) out += run.gap;
        out += converts ? std::string_view(piece) : run.source;
        follows_decoded = converts;
    }
    return out;
}
