// The streaming converter: see converter.h.
//
// A reader turns bytes into valid UTF-8 and refuses what is not text of its set; a writer turns valid UTF-8 into bytes
// and puts "?" for what its set does not have. Input is worked off in blocks, so that memory does not grow with it.
#include "cvc/converter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>

#include "ccs/ccs.h"
#include "cvc/hz.h"
#include "cvc/iconv_pool.h"
#include "cvc/utf8.h"
#include "dstring/words.h"

namespace {

constexpr std::size_t kBlock = std::size_t{16} << 10;
constexpr std::size_t kLongestCharacter = 32;  // bytes of one character of any set, its shifts included

enum class Coding { none, ascii, latin1, utf8, hz, iconv };

struct Side {
    Coding coding = Coding::none;
    std::string iconv_name;
};

// A name that may be handed to iconv_open: letters, digits and the punctuation of set names. A slash would begin
// options of iconv's own.
bool is_safe_name(std::string_view name) {
    constexpr std::size_t kNameLimit = 40;
    const auto is_allowed = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               std::string_view("-_.:+()").find(c) != std::string_view::npos;
    };
    return !name.empty() && name.size() <= kNameLimit && std::all_of(name.begin(), name.end(), is_allowed);
}

Side side_of(std::string_view name) {
    const ccs_Descriptor* set = ccs_GetCSDescriptor2(name);
    if (set == nullptr) return is_safe_name(name) ? Side{Coding::iconv, std::string(name)} : Side{};
    if (set->name == kAsciiSet) return {Coding::ascii, {}};
    if (set->name == kLatin1Set) return {Coding::latin1, {}};
    if (set->name == kUtf8Set) return {Coding::utf8, {}};
    if (set->name == kHzSet) return {Coding::hz, "GBK"};
    return {Coding::iconv, set->iconv};
}

bool needs_iconv(const Side& side) { return side.coding == Coding::iconv || side.coding == Coding::hz; }

// One call of iconv(3) on all of `input`, room for the output made as needed. Returns 0, or errno: EINVAL with the rest
// of a cut character in `input`, EILSEQ with the character that cannot be read or written at its front.
int run_iconv(iconv_t descriptor, std::string_view& input, std::string& out, bool flush = false) {
    std::size_t room = input.size() + input.size() / 2 + kLongestCharacter;
    for (;;) {
        const std::size_t before = out.size(), left_before = input.size();
        out.resize(before + room);
        char* target = out.data() + before;
        char* source = const_cast<char*>(input.data());
        std::size_t left = input.size();
        const std::size_t result = iconv(descriptor, flush ? nullptr : &source, &left, &target, &room);
        const int error = result == static_cast<std::size_t>(-1) ? errno : 0;
        out.resize(static_cast<std::size_t>(target - out.data()));
        input.remove_prefix(flush ? 0 : input.size() - left);
        if (error != E2BIG) return error;
        const bool stuck = out.size() == before && input.size() == left_before && room > 16 * kLongestCharacter;
        if (stuck) return EILSEQ;
        room = std::max(room * 2, input.size() * 2 + 4 * kLongestCharacter);
    }
}

// Characters that vendors' tables map to one of two codes: text read by one table can still be written by another.
struct Twin {
    char32_t code, other;
};
constexpr auto kTwins = std::to_array<Twin>({
    {0x00A2, 0xFFE0},  // cent
    {0x00A3, 0xFFE1},  // pound
    {0x00A5, 0xFFE5},  // yen
    {0x00A6, 0xFFE4},  // broken bar
    {0x00AC, 0xFFE2},  // not
    {0x00AF, 0xFFE3},  // macron
    {0x00B7, 0x30FB},  // middle dot, katakana middle dot
    {0x2014, 0x2015},  // em dash, horizontal bar
    {0x2016, 0x2225},  // double vertical line, parallel to
    {0x203E, 0xFFE3},  // overline, macron
    {0x2212, 0xFF0D},  // minus
    {0x301C, 0xFF5E},  // wave dash, full-width tilde
});

template <class Try>
bool try_twins(char32_t code, Try&& attempt) {
    for (const Twin& twin : kTwins) {
        if (twin.code == code && attempt(twin.other)) return true;
        if (twin.other == code && attempt(twin.code)) return true;
    }
    return false;
}

constexpr std::string_view kSignature = "\xEF\xBB\xBF";  // a byte-order mark: no part of the text

constexpr std::size_t kLatin1Growth = 2;  // bytes of UTF-8 that a character of Latin-1 has at most

// Writes a character of Latin-1 as UTF-8 (RFC 3629, section 3) and returns where the next one goes.
char* put_latin1(char c, char* out) {
    const auto code = static_cast<unsigned char>(c);
    if (code < 0x80) {
        *out = c;
        return out + 1;
    }
    out[0] = static_cast<char>(0xC0 | code >> 6);
    out[1] = static_cast<char>(0x80 | (code & 0x3F));
    return out + 2;
}

// Every byte is a character, so the text goes over in one pass: words are copied as they are, and what stands in one
// from its first accent on is overwritten. `out` has room for kLatin1Growth times the input, which is room for whole
// words wherever a whole word is left to be read.
char* latin1_to_utf8(std::string_view input, char* out) {
    constexpr std::uint64_t high_bits = 0x8080808080808080;
    const char* at = input.data();
    const char* const end = at + input.size();
    while (static_cast<std::size_t>(end - at) >= sizeof(std::uint64_t)) {
        std::uint64_t word;
        std::memcpy(&word, at, sizeof word);
        std::memcpy(out, &word, sizeof word);
        const std::size_t plain = dstring_bytes_unmarked(word & high_bits);
        at += plain;
        out += plain;
        if (plain < sizeof word) out = put_latin1(*at++, out);
    }
    while (at != end) out = put_latin1(*at++, out);
    return out;
}

}  // namespace

class cvc_Converter::Reader {
public:
    explicit Reader(Side side) : side_(std::move(side)) {
        if (needs_iconv(side_)) iconv_ = IconvLoan("UTF-8", side_.iconv_name);
    }
    bool available() const { return side_.coding != Coding::none && (!needs_iconv(side_) || iconv_); }

    bool read(std::string_view input, std::string& utf8) {
        switch (side_.coding) {
            case Coding::ascii: utf8 += input; return ccs_Is7BitAscii(input);
            case Coding::latin1: read_latin1(input, utf8); return true;
            case Coding::utf8: return read_utf8(input, utf8);
            case Coding::hz: return read_hz(input, utf8);
            case Coding::iconv: return read_iconv(input, utf8);
            case Coding::none: break;
        }
        return false;
    }

    bool finish(std::string& utf8) {
        if (!carry_.empty() || !hz_.finish()) return false;
        std::string_view nothing;
        return !iconv_ || run_iconv(iconv_.get(), nothing, utf8, true) == 0;
    }

private:
    static void read_latin1(std::string_view input, std::string& utf8) {
        const std::size_t before = utf8.size();
        utf8.resize(before + kLatin1Growth * input.size());
        utf8.resize(static_cast<std::size_t>(latin1_to_utf8(input, utf8.data() + before) - utf8.data()));
    }

    bool read_utf8(std::string_view input, std::string& utf8) {
        input = with_carry(input);
        const Utf8Prefix prefix = check_utf8(input);
        std::string_view text = input.substr(0, prefix.valid);
        carry_ = input.substr(prefix.valid);
        if (!begun_ && !text.empty()) {
            begun_ = true;
            if (text.starts_with(kSignature)) text.remove_prefix(kSignature.size());
        }
        utf8 += text;
        return carry_.empty() || prefix.cut;
    }

    bool read_hz(std::string_view input, std::string& utf8) {
        euc_.clear();
        return hz_.decode(input, euc_) && read_iconv(euc_, utf8);
    }

    bool read_iconv(std::string_view input, std::string& utf8) {
        input = with_carry(input);
        const int error = run_iconv(iconv_.get(), input, utf8);
        carry_ = input;
        return error == 0 || (error == EINVAL && carry_.size() < kLongestCharacter);
    }

    // `input` with what was left from the piece before in front of it. The view is good until the next call.
    std::string_view with_carry(std::string_view input) {
        if (carry_.empty()) return input;
        joined_ = carry_;
        joined_ += input;
        carry_.clear();
        return joined_;
    }

    Side side_;
    IconvLoan iconv_;
    cvc_HzDecoder hz_;
    std::string carry_;   // the beginning of a character that the next piece completes
    std::string joined_;  // the carry and the next piece
    std::string euc_;     // HZ as EUC-CN
    bool begun_ = false;
};

class cvc_Converter::Writer {
public:
    explicit Writer(Side side) : side_(std::move(side)) {
        if (needs_iconv(side_)) iconv_ = IconvLoan(side_.iconv_name, "UTF-8");
    }
    bool available() const { return side_.coding != Coding::none && (!needs_iconv(side_) || iconv_); }
    std::uint64_t lost() const { return lost_; }
    bool takes_all() const { return side_.coding == Coding::utf8; }  // what is read is what is written

    void write(std::string_view utf8, std::string& out) {
        switch (side_.coding) {
            case Coding::ascii: write_single(utf8, 0x80, out); return;
            case Coding::latin1: write_single(utf8, 0x100, out); return;
            case Coding::utf8: out += utf8; return;
            case Coding::hz: write_hz(utf8, out); return;
            case Coding::iconv: write_iconv(utf8, out); return;
            case Coding::none: return;
        }
    }

    void finish(std::string& out) {
        if (side_.coding == Coding::hz) hz_.finish(out);
        std::string_view nothing;
        if (iconv_) run_iconv(iconv_.get(), nothing, out, true);
    }

private:
    void write_single(std::string_view utf8, char32_t bound, std::string& out) {
        while (!utf8.empty()) {
            const std::size_t plain = ccs_ascii_prefix(utf8);
            out.append(utf8.data(), plain);
            utf8.remove_prefix(plain);
            while (!utf8.empty() && static_cast<unsigned char>(utf8.front()) >= 0x80) {
                const Utf8Character character = first_character(utf8);
                put_single(character.code, bound, out);
                utf8.remove_prefix(character.length);
            }
        }
    }

    void put_single(char32_t code, char32_t bound, std::string& out) {
        const auto put = [&](char32_t c) {
            if (c >= bound) return false;
            out += static_cast<char>(c);
            return true;
        };
        if (put(code) || try_twins(code, put)) return;
        out += '?';
        ++lost_;
    }

    void write_iconv(std::string_view utf8, std::string& out) {
        while (run_iconv(iconv_.get(), utf8, out) != 0 && !utf8.empty()) {
            const Utf8Character character = first_character(utf8);
            utf8.remove_prefix(std::min(character.length, utf8.size()));
            put_other(character.code, out);
        }
    }

    // For a character that the set does not have. The replacement goes through iconv too: the set may be shifted.
    void put_other(char32_t code, std::string& out) {
        const auto put = [&](char32_t c) {
            std::string bytes;
            append_utf8(bytes, c);
            std::string_view view = bytes;
            return run_iconv(iconv_.get(), view, out) == 0;
        };
        if (try_twins(code, put)) return;
        put('?');
        ++lost_;
    }

    void write_hz(std::string_view utf8, std::string& out) {
        euc_.clear();
        write_iconv(utf8, euc_);
        lost_ += hz_.encode(euc_, out);
    }

    Side side_;
    IconvLoan iconv_;
    cvc_HzEncoder hz_;
    std::string euc_;
    std::uint64_t lost_ = 0;
};

cvc_Converter::cvc_Converter(std::string_view from, std::string_view to)
    : reader_(std::make_unique<Reader>(side_of(from))), writer_(std::make_unique<Writer>(side_of(to))) {}

cvc_Converter::~cvc_Converter() = default;

bool cvc_Converter::available() const { return reader_->available() && writer_->available(); }

void cvc_Converter::pass_on(std::string& out) {
    writer_->write(middle_, out);
    middle_.clear();
}

// Of a piece that cannot be read nothing goes out.
bool cvc_Converter::read_into(std::string_view piece, std::string& out) {
    const std::size_t before = out.size();
    if (reader_->read(piece, out)) return true;
    out.resize(before);
    return false;
}

bool cvc_Converter::convert(std::string_view input, std::string& out) {
    while (!input.empty()) {
        const std::string_view piece = input.substr(0, kBlock);
        if (!(writer_->takes_all() ? read_into(piece, out) : reader_->read(piece, middle_))) return false;
        pass_on(out);
        input.remove_prefix(piece.size());
    }
    return true;
}

bool cvc_Converter::finish(std::string& out) {
    if (!reader_->finish(middle_)) return false;
    pass_on(out);
    writer_->finish(out);
    return true;
}

std::uint64_t cvc_Converter::lost() const { return writer_->lost(); }
