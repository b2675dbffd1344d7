// Internet addresses. A cursor takes lexical units (RFC 5322, section 3.2), one loop over them reads a phrase, another
// an addr-spec:
//
//   address   = addr-spec / [phrase] "<" [route ":"] addr-spec ">" / phrase ":" ";" / phrase
//   phrase    = *( atom / quoted-string / comment / "." )
//   addr-spec = local-part [ "@" domain ]
//   local-part, domain = word *( "." word )        comments and blanks around each word
#include "mim/address.h"

#include <array>
#include <cstdint>

namespace {

enum Class : std::uint8_t { kAtom, kBlank, kSpecial };

constexpr std::array<Class, 256> make_classes() {
    std::array<Class, 256> classes{};
    for (const char c : {' ', '\t', '\r', '\n', '\v', '\f'}) classes[static_cast<unsigned char>(c)] = kBlank;
    for (const char c : {'(', ')', '<', '>', '[', ']', ':', ';', '@', '\\', ',', '.', '"'})
        classes[static_cast<unsigned char>(c)] = kSpecial;
    return classes;
}
constexpr auto kClasses = make_classes();
Class class_of(char c) { return kClasses[static_cast<unsigned char>(c)]; }

// Walks over a text in lexical units.
class Cursor {
public:
    explicit Cursor(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    bool done() const { return at_ == end_; }
    char peek() const { return *at_; }
    void skip() { ++at_; }
    const char* position() const { return at_; }
    bool take(char wanted) {
        if (done() || *at_ != wanted) return false;
        ++at_;
        return true;
    }
    bool skip_blanks() {
        const char* start = at_;
        while (at_ != end_ && class_of(*at_) == kBlank) ++at_;
        return at_ != start;
    }
    std::string_view take_atom() {
        const char* start = at_;
        while (at_ != end_ && class_of(*at_) == kAtom) ++at_;
        return {start, static_cast<std::size_t>(at_ - start)};
    }
    // A quoted string from its opening quote on; false when it is not closed.
    bool take_quoted(std::string& content) {
        for (++at_; at_ != end_; ++at_) {
            if (*at_ == '"') {
                ++at_;
                return true;
            }
            if (*at_ == '\\' && at_ + 1 != end_) ++at_;
            content.push_back(*at_);
        }
        return false;
    }
    // A comment from its opening parenthesis on, comments inside it included; an open one ends with the text.
    void take_comment(std::string& content) {
        int depth = 1;
        for (++at_; at_ != end_; ++at_) {
            if (*at_ == ')' && --depth == 0) {
                ++at_;
                return;
            }
            if (*at_ == '(') ++depth;
            if (*at_ == '\\' && at_ + 1 != end_) ++at_;
            content.push_back(*at_);
        }
    }
    // Steps over atoms, blanks, dots and signs of addresses.
    void skip_ordinary() {
        while (at_ != end_ && (class_of(*at_) != kSpecial || *at_ == '.' || *at_ == '@')) ++at_;
    }
    // Steps over one unit without looking into it.
    void skip_unit() {
        if (*at_ == '"')
            skip_until_closed('"', '"');
        else if (*at_ == '(')
            skip_until_closed('(', ')');
        else if (*at_ == '\\' && at_ + 1 != end_)
            at_ += 2;
        else
            ++at_;
    }

private:
    void skip_until_closed(char open, char close) {
        int depth = 1;
        for (++at_; at_ != end_; ++at_) {
            if (*at_ == close) {
                if (--depth == 0) {
                    ++at_;
                    return;
                }
            } else if (*at_ == open) {
                ++depth;
            } else if (*at_ == '\\' && at_ + 1 != end_) {
                ++at_;
            }
        }
    }

    const char* at_;
    const char* end_;
};

std::string_view between(const char* begin, const char* end) { return {begin, static_cast<std::size_t>(end - begin)}; }

void read_comment(Cursor& in, mim_Address& out) {
    if (!out.comment.empty()) {
        in.skip_unit();
        return;
    }
    in.take_comment(out.comment);
    if (out.comment.find_first_not_of(" \t\r\n") == std::string::npos) out.comment.clear();
}

// Blanks and comments. True when there was one.
bool skip_filling(Cursor& in, mim_Address& out) {
    bool any = false;
    for (;;) {
        if (in.skip_blanks())
            any = true;
        else if (!in.done() && in.peek() == '(')
            read_comment(in, out), any = true;
        else
            return any;
    }
}

// Words before an angle bracket, a group's name, or words alone. Specials that a phrase must not hold are left out, but
// for those that people write into their names. False when there was one that words alone would not hold.
bool read_phrase(std::string_view text, mim_Address& out) {
    Cursor in(text);
    bool only_words = true, pending_blank = false;
    const auto join = [&] {
        if (pending_blank && !out.phrase.empty()) out.phrase.push_back(' ');
        pending_blank = false;
    };
    while (!in.done()) {
        const char c = in.peek();
        if (class_of(c) == kAtom) {
            join();
            out.phrase.append(in.take_atom());
        } else if (skip_filling(in, out)) {
            pending_blank = true;
        } else if (c == '"') {
            join();
            only_words &= in.take_quoted(out.phrase);
        } else {
            in.skip();
            if (c == '<' || c == '>') continue;
            join();
            if (c != '\\') out.phrase.push_back(c);
            only_words &= c == '.';
        }
    }
    return only_words;
}

// An atom, with pairs of a backslash and a character in it. False when a backslash stands last.
bool read_word(Cursor& in, std::string& part) {
    while (!in.done() && (class_of(in.peek()) == kAtom || in.peek() == '\\')) {
        part.append(in.take_atom());
        if (!in.take('\\')) continue;
        if (in.done()) return false;
        part.push_back(in.peek());
        in.skip();
    }
    return true;
}

enum class Words { any, atoms };

// Words with dots between them, up to anything else. False when two words stand side by side or one is cut off.
bool read_dotted(Cursor& in, Words words, std::string& part, mim_Address& out) {
    bool after_word = false;
    for (;;) {
        skip_filling(in, out);
        if (in.done()) return true;
        const char c = in.peek();
        if (c == '.') {
            part.push_back(c);
            in.skip();
            after_word = false;
            continue;
        }
        const bool atom = class_of(c) == kAtom;
        if (!atom && (words == Words::atoms || (c != '"' && c != '\\'))) return true;
        if (after_word) return false;
        after_word = true;
        if (words == Words::atoms)
            part.append(in.take_atom());
        else if (c == '"' ? !in.take_quoted(part) : !read_word(in, part))
            return false;
    }
}

// A domain: dotted atoms or a literal in square brackets. Quotes and backslashes have no place in it.
bool read_domain(Cursor& in, mim_Address& out) {
    skip_filling(in, out);
    const char* const start = in.position();
    if (in.done() || in.peek() != '[') return read_dotted(in, Words::atoms, out.domain, out);
    while (!in.done() && in.peek() != ']') in.skip_unit();
    if (!in.take(']')) return false;
    out.domain.assign(between(start, in.position()));
    skip_filling(in, out);
    return true;
}

std::size_t plain_run(std::string_view text) {
    std::size_t run = 0;
    while (run < text.size() && (text[run] == '.' || class_of(text[run]) == kAtom)) ++run;
    return run;
}

// Atoms and dots around one "@", as nearly all addresses are.
bool read_plain_addr_spec(std::string_view text, mim_Address& out) {
    const std::size_t at = plain_run(text);
    if (at == 0 || at + 1 >= text.size() || text[at] != '@') return false;
    const std::string_view domain = text.substr(at + 1);
    if (plain_run(domain) != domain.size()) return false;
    out.localpart = text.substr(0, at);
    out.domain = domain;
    return true;
}

// local-part [ "@" domain ], and nothing after it.
bool read_addr_spec(std::string_view text, mim_Address& out) {
    if (read_plain_addr_spec(text, out)) return true;
    Cursor in(text);
    if (!read_dotted(in, Words::any, out.localpart, out)) return false;
    if (in.take('@')) {
        if (!read_domain(in, out) || out.domain.empty()) return false;
    }
    return in.done() && !out.localpart.empty();
}

// What stands before the angle bracket of an address, between it and its end, and after it.
struct Angle {
    std::string_view before, inside, after;
};

// Finds the angle bracket that counts: the last opening one before the first closing one.
bool find_angle(std::string_view text, Angle& angle) {
    Cursor in(text);
    const char* open = nullptr;
    const char* const begin = text.data();
    const char* const end = begin + text.size();
    for (in.skip_ordinary(); !in.done(); in.skip_unit(), in.skip_ordinary()) {
        if (in.peek() == '<') open = in.position();
        if (in.peek() == '>' && open != nullptr) {
            angle = {between(begin, open), between(open + 1, in.position()), between(in.position() + 1, end)};
            return true;
        }
    }
    if (open == nullptr) return false;
    angle = {between(begin, open), between(open + 1, end), {}};
    return true;
}

// "<" [route ":"] addr-spec ">" with what stands around it.
mim_AddressKind read_angle(const Angle& angle, mim_Address& out) {
    read_phrase(angle.before, out);
    Cursor in(angle.inside);
    skip_filling(in, out);
    const bool empty = in.done();
    std::string_view rest = between(in.position(), angle.inside.data() + angle.inside.size());
    bool readable = true;
    if (!empty && in.peek() == '@') {
        const char* start = in.position();
        while (!in.done() && in.peek() != ':') in.skip_unit();
        out.route.assign(between(start, in.position()));
        readable = in.take(':');
        rest = between(in.position(), rest.data() + rest.size());
    }
    if (readable && !empty) readable = read_addr_spec(rest, out);
    Cursor after(angle.after);
    skip_filling(after, out);
    if (empty) return out.phrase.empty() && out.comment.empty() ? mim_AddressKind::unreadable : mim_AddressKind::words;
    return readable ? mim_AddressKind::address : mim_AddressKind::unreadable;
}

// A group without members: its name, when that is what the text is.
bool empty_group(std::string_view text, std::string_view& name) {
    Cursor in(text);
    while (!in.done() && in.peek() != ':') in.skip_unit();
    name = between(text.data(), in.position());
    if (!in.take(':')) return false;
    in.skip_blanks();
    if (!in.take(';')) return false;
    in.skip_blanks();
    return in.done();
}

bool has_blank(std::string_view text) { return text.find_first_of(" \t") != std::string_view::npos; }

// Text without an angle bracket.
mim_AddressKind read_bare(std::string_view text, mim_Address& out) {
    // A route whose own angle bracket was cut off together with what stood before it leaves "local@domain>".
    while (!text.empty() && (text.back() == '>' || class_of(text.back()) == kBlank)) text.remove_suffix(1);
    const bool readable = read_addr_spec(text, out);
    if (readable && !(out.domain.empty() && has_blank(out.localpart))) return mim_AddressKind::address;
    if (!out.domain.empty()) return mim_AddressKind::unreadable;

    mim_Address words;
    std::string_view name;
    const bool group = empty_group(text, name);
    const bool only_words = read_phrase(group ? name : text, words);
    const bool something = !words.phrase.empty() || !words.comment.empty();
    if (!something || (!group && !only_words)) return mim_AddressKind::unreadable;
    out = std::move(words);
    return mim_AddressKind::words;
}

// Can the local part stand without quotes? Dots count as ordinary: addresses with two in a row are in use.
bool plain(std::string_view localpart) {
    for (const char c : localpart)
        if (c != '.' && (class_of(c) != kAtom || static_cast<unsigned char>(c) < 0x20 || c == 0x7F)) return false;
    return !localpart.empty();
}

}  // namespace

mim_Address mim_parse_address(std::string_view address) {
    mim_Address out;
    Angle angle;
    out.kind = find_angle(address, angle) ? read_angle(angle, out) : read_bare(address, out);
    return out;
}

void mim_append_addr_spec(std::string& out, const mim_Address& address, bool lower_domain) {
    if (plain(address.localpart)) {
        out.append(address.localpart);
    } else {
        out.push_back('"');
        for (const char c : address.localpart) {
            if (c == '"' || c == '\\') out.push_back('\\');
            out.push_back(c);
        }
        out.push_back('"');
    }
    if (address.domain.empty()) return;
    out.push_back('@');
    const std::size_t start = out.size();
    out.append(address.domain);
    if (!lower_domain) return;
    for (std::size_t i = start; i < out.size(); ++i)
        if (out[i] >= 'A' && out[i] <= 'Z') out[i] = static_cast<char>(out[i] + ('a' - 'A'));
}
