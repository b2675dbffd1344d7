// Signed entities. A multipart/signed is built from the input: alone, in a multipart/mixed, or as what another one
// signs; with any lines and line ends, closed or not. What comes of it is compared with a second statement of the
// rules:
//
//   - the signature item, byte for byte, in both modes, stands behind what was made of the first part;
//   - the first part becomes what it becomes in a multipart/mixed;
//   - what follows in the enclosing multipart is converted;
//   - how the text is cut in a pipe does not matter, and nothing stays in the store, refused or not.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "fuzz_source.h"
#include "mime_room.h"

using namespace mime_room;

namespace {

constexpr std::size_t kShortLine = 1023;  // with its line end; only such a line can mean anything
constexpr std::string_view kAfter = "After.";
constexpr std::string_view kEnd = ".\n";

// ---- What must become of one

struct Line {
    std::string_view raw;   // with its line end
    std::string_view text;  // without
    bool is(std::string_view meant) const { return raw.size() <= kShortLine && text == meant; }
};

// The next line; none when the text stops without a line end.
std::optional<Line> take_line(std::string_view& rest) {
    const std::size_t end = rest.find('\n');
    if (end == std::string_view::npos) return std::nullopt;
    Line line{rest.substr(0, end + 1), rest.substr(0, end)};
    while (line.text.ends_with('\r')) line.text.remove_suffix(1);
    rest.remove_prefix(end + 1);
    return line;
}

bool has_end_line(std::string_view text) {
    while (const std::optional<Line> line = take_line(text))
        if (line->is(".")) return true;
    return false;
}

bool has_line_like(std::string_view text, std::string_view marker) {
    const auto equal = [](char a, char b) { return (a | 0x20) == (b | 0x20); };
    while (const std::optional<Line> line = take_line(text)) {
        const std::string_view front = line->text.substr(0, marker.size());
        if (std::equal(front.begin(), front.end(), marker.begin(), marker.end(), equal)) return true;
    }
    return false;
}

struct Entity {
    std::string boundary;
    std::string parameters;
    std::string marker() const { return "--" + boundary; }
    std::string type(std::string_view subtype) const { return "multipart/" + std::string(subtype) + "; " + parameters; }
};

// What is kept of an entity.
struct Kept {
    std::string signature;
    std::string_view copied;  // behind the first boundary line; with the closing line, without an end line
    std::string_view behind;  // what follows it
    bool closed = false;
};

std::string head_of(const Entity& entity) {
    std::string head = "Content-Type: multipart/signed;\r\n\t";
    for (const char c : entity.parameters) {
        head += c;
        if (c == ';') head += "\r\n\t";
    }
    return head + "\r\n\r\n\r\n" + entity.marker() + "\r\n";
}

// Of the text behind its header; none when it never opens. The text has an end line.
std::optional<Kept> keep(const Entity& entity, std::string_view rest, bool smime_v2) {
    for (std::optional<Line> line = take_line(rest); !line->is(entity.marker()); line = take_line(rest))
        if (line->is(".")) return std::nullopt;
    Kept kept{head_of(entity), {}, {}, false};
    const std::string_view copy = rest;
    bool ended = false;
    while (!kept.closed && !ended) {
        const Line line = *take_line(rest);
        ended = line.is(".");
        kept.closed = line.is(entity.marker() + "--");
        if (!ended) kept.copied = copy.substr(0, copy.size() - rest.size());
        if (ended && !smime_v2) break;
        const bool stuffed = line.text.starts_with("..") && !smime_v2;
        kept.signature.append(line.text.substr(stuffed ? 1 : 0)).append("\r\n");
    }
    kept.behind = rest;
    return kept;
}

// ---- Building one

enum class Place { kAlone, kInMixed, kInSigned };

class Builder {
public:
    explicit Builder(FuzzSource source) : source_(source) { build(); }

    Place place = Place::kAlone;
    Entity outer;  // the message's own
    Entity entity;
    std::string text;
    std::size_t body = 0;        // where the entity's text begins
    std::size_t first_part = 0;  // where it begins,
    std::size_t separator = 0;   // and the boundary line behind it; 0: none
    std::size_t tail = 0;        // what follows the entity in the enclosing one
    bool plain = false;          // the first part holds no other entities

private:
    void build() {
        place = static_cast<Place>(source_.choice(3));
        outer = make_entity("o");
        entity = make_entity("b");
        if (place == Place::kAlone)
            outer = entity;
        else
            text = outer.marker() + eol() + "Content-Type: " + entity.type("signed") + eol() + eol();
        body = text.size();
        write_entity();
        tail = text.size();
        if (place == Place::kInMixed)
            text += outer.marker() + eol() + eol() + std::string(kAfter) + eol() + outer.marker() + "--" + eol();
        if (place == Place::kInSigned) {
            if (source_.choice(4) != 0) text += outer.marker() + eol() + "Content-Type: x/y" + eol() + eol() + lines();
            if (source_.choice(8) != 0) text += outer.marker() + "--" + eol();
            if (source_.choice(4) == 0) text += lines();
        }
        if (source_.choice(16) != 1) text += std::string("\n").append(kEnd);
    }

    std::string eol() {
        constexpr std::string_view ends[] = {"\n", "\r\n", "\r\n", "\n", "\r\n", "\r\r\n"};
        const unsigned kind = source_.choice(200);
        return kind == 199 ? std::string(source_.choice(256) * 5, '\r') + "\n" : std::string(ends[kind % 6]);
    }

    Entity make_entity(const std::string& name) {
        const std::size_t longest = place == Place::kAlone ? 1016 : 780;  // a header field holds 1,023 characters
        const std::string boundaries[] = {name, "=_" + name, name + "--", name + std::string(68, '+'),
                                          name + std::string(source_.choice(40) * longest / 39, 'y')};
        Entity made{boundaries[source_.choice(5)], {}};
        const bool quoted = source_.choice(2) != 0;
        made.parameters = "boundary=" + (quoted ? '"' + made.boundary + '"' : made.boundary);
        if (source_.choice(2) == 0) made.parameters += other_parameters();
        return made;
    }

    // Anything behind a semicolon that names no boundary again and that a header field keeps as it is.
    std::string other_parameters() {
        std::string other = ";" + source_.text(120);
        constexpr std::string_view kept = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 ;=\"/-_";
        std::erase_if(other, [&](char c) { return c == '\0' || kept.find(c) == std::string_view::npos; });
        while (other.ends_with(' ')) other.pop_back();
        std::string lower = other;
        std::ranges::transform(lower, lower.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c | 0x20 : c; });
        return lower.find("boundary") == std::string::npos ? other : ";" + std::string("micalg=x");
    }

    void write_entity() {
        if (source_.choice(4) == 0) text += lines();
        text += entity.marker() + eol();
        first_part = text.size();
        write_header();
        text += lines();
        if (source_.choice(32) == 1) repeat_lines();
        if (source_.choice(8) != 0) write_signature();
        if (separator == 0) separator = text.size();
        const bool closes = source_.choice(8) != 0;
        if (closes) text += entity.marker() + "--" + eol();
        if (!closes && separator == text.size()) separator = 0;
        if (source_.choice(4) == 0) text += lines();
    }

    void write_header() {
        constexpr std::string_view types[] = {"",
                                              "application/octet-stream",
                                              "text/plain; charset=utf-8",
                                              "text/html",
                                              "image/png; name=\"x.png\"",
                                              "message/rfc822",
                                              "multipart/mixed; boundary=i",
                                              "multipart/signed; boundary=i"};
        constexpr std::string_view encodings[] = {"", "", "", "base64", "quoted-printable", "x-uuencode", "binary"};
        const unsigned type = source_.choice(8), encoding = source_.choice(7);
        plain = type < 5;
        if (type != 0) text += "Content-Type: " + std::string(types[type]) + eol();
        if (encoding > 2) text += "Content-Transfer-Encoding: " + std::string(encodings[encoding]) + eol();
        if (source_.choice(4) == 0) text += "X-Field: " + without_line_ends(source_.text(200)) + eol();
        text += eol();
    }

    static std::string without_line_ends(std::string field) {
        std::erase_if(field, [](char c) { return c == '\r' || c == '\n'; });
        return field;
    }

    // So that the part and its copies do not stay in memory.
    void repeat_lines() {
        const std::string once = text.substr(first_part);
        if (once.size() < 100 || has_end_line(once)) return;
        while (text.size() < std::size_t{400} << 10) text += once;
    }

    void write_signature() {
        separator = text.size();
        text += entity.marker() + eol() + "Content-Type: application/pgp-signature" + eol();
        if (source_.choice(8) != 0) text += eol() + lines();
    }

    std::string lines() {
        std::string all;
        for (unsigned left = source_.choice(8); left > 0 && !source_.empty(); --left) all += line() + eol();
        return all;
    }

    std::string line() {
        const std::string marker = entity.marker();
        switch (source_.choice(24)) {
            case 0: return "..";
            case 1: return "...";
            case 2: return ".x";
            case 3: return "..x";
            case 4: return marker + "-";
            case 5: return marker + "-- ";
            case 6: return "-" + marker;
            case 7: return "--B--";
            case 8: return "--i";
            case 9: return "--i--";
            case 10: return outer.marker();
            case 11: return outer.marker() + "--";
            case 12: return std::string(1000 + source_.choice(50), 'x');
            case 13: return std::string(1000 + source_.choice(50), 'x') + marker + "--";
            case 14: return ".." + std::string(1000 + source_.choice(50), 'y') + "\r.";
            case 15: return std::string(source_.choice(256) * 12, '\r') + "x";
            case 16: return std::string(3, '\0');
            case 17: return rare_line(marker);
            case 18: return "";
            default: return source_.text(300);
        }
    }

    std::string rare_line(const std::string& marker) {
        switch (source_.choice(8)) {
            case 0: return ".";
            case 1: return marker;
            case 2: return marker + "--";
            case 3: return marker + std::string("--\0", 3);
            default: return "--";
        }
    }

    FuzzSource source_;
};

// ---- Comparing

Outcome convert_whole(std::string_view type, std::string_view text, bool smime_v2) {
    ux_LineReader reader = reader_of(text, text.size());
    return convert(type, reader, 'N', smime_v2);
}

Outcome convert_from_pipe(std::string_view type, std::string_view text, bool smime_v2, std::size_t piece) {
    int ends[2];
    require(::pipe2(ends, O_CLOEXEC) == 0);
    const os_Fd reading(ends[0]);
    std::thread agent([&] {
        const os_Fd writing(ends[1]);
        for (std::size_t at = 0; at < text.size(); at += piece) {
            const std::string_view next = text.substr(at, piece);
            if (::write(writing.get(), next.data(), next.size()) != static_cast<ssize_t>(next.size())) return;
        }
    });
    ux_LineReader reader(reading.get());
    Outcome outcome = convert(type, reader, 'N', smime_v2);
    std::string rest(4096, '\0');
    while (::read(reading.get(), rest.data(), rest.size()) > 0) {}
    agent.join();
    return outcome;
}

// The file `from_back` is a signature item, and its record says so.
void require_signature(const Outcome& made, std::size_t from_back, const std::string& signature) {
    require(made.files.size() > from_back);
    const std::size_t at = made.files.size() - 1 - from_back;
    require(made.files[at] == signature);
    const TFREC_content_file& file = made.described[at];
    require(file.contentType == 2185 && file.contentFlags == 0);
    require(file.pMIMEContentType == "multipart/signed" && file.rfc2047subject == "smime_clearsigned.txt");
    require(file.pOrigFileName.empty() && file.pContentCharset.empty() && file.pContentDisp.empty());
}

bool is_content(const std::string& record) {
    tf_Record read;
    read.assign(record);
    return read.type() == TFREC_content_file_type;
}

// The records and files of the first part, which stand between the package's own record and the signature item's, are
// those that a multipart/mixed begins with.
void check_first_part(const Builder& built, const Outcome& made, const Kept& kept) {
    const auto last = std::find_if(made.records.rbegin(), made.records.rend(), is_content);
    const std::vector<std::string> records(made.records.begin() + 1, last.base() - 1);
    const std::vector<std::string> files(made.files.begin(), made.files.end() - 1);

    const std::string start = built.entity.marker() + "\n";
    const std::string type = built.entity.type("mixed");
    const Outcome all = convert_whole(type, start + std::string(kept.copied) + std::string(kEnd), false);
    if (all.refused == 0) {
        require(all.records.size() >= records.size() && all.files.size() >= files.size());
        require(std::equal(records.begin(), records.end(), all.records.begin()));
        require(std::equal(files.begin(), files.end(), all.files.begin()));
    }

    if (!built.plain || built.separator == 0) return;
    const std::string part = built.text.substr(built.first_part, built.separator - built.first_part);
    const bool as_built = kept.copied.data() == built.text.data() + built.first_part;
    if (!as_built || has_end_line(part) || has_line_like(part, built.entity.marker())) return;
    const Outcome alone = convert_whole(type, start + part + built.entity.marker() + "--\n.\n", false);
    require(alone.refused == 0 && alone.records == records && alone.files == files);
}

// In an enclosing multipart/mixed, whose last part is text.
void check_in_mixed(const Builder& built, const Outcome& made, const Kept& kept) {
    if (!kept.closed) return require_signature(made, 0, kept.signature);
    // A boundary line that does not fit into one piece with its line end is none.
    if (built.text.find(std::string(kTextLineLimit / 2, '\r')) != std::string::npos) return;
    const std::size_t behind = static_cast<std::size_t>(kept.behind.data() - built.text.data());
    if (behind > built.tail) return;
    const std::string_view between = std::string_view(built.text).substr(behind, built.tail - behind);
    if (has_end_line(between) || has_line_like(between, built.outer.marker())) return;
    require(made.files.back() == kAfter);
    require_signature(made, 1, kept.signature);
}

// As what another one signs, of which `whole` is kept.
void check_in_signed(const Builder& built, const Outcome& made, const Kept& whole) {
    require_signature(made, 0, whole.signature);
    const std::size_t header = built.body - static_cast<std::size_t>(whole.copied.data() - built.text.data());
    const std::string copy = std::string(whole.copied.substr(header)) + std::string(kEnd);
    if (const std::optional<Kept> inner = keep(built.entity, copy, false))
        require_signature(made, 1, inner->signature);
    else
        require(made.files.size() == 1);
}

void check_version_2(const Builder& built, const Outcome& made, const std::optional<Kept>& kept) {
    if (!kept) return require(made.files.empty());
    if (built.place == Place::kInMixed) return check_in_mixed(built, made, *kept);
    require(made.files.size() == 1);
    require_signature(made, 0, kept->signature);
}

void check(const Builder& built, const Outcome& made, bool smime_v2) {
    const bool whole_first = built.place != Place::kInMixed;
    const std::string_view text = built.text;
    const std::optional<Kept> kept =
        whole_first ? keep(built.outer, text, smime_v2) : keep(built.entity, text.substr(built.body), smime_v2);
    if (smime_v2) return check_version_2(built, made, kept);
    if (!kept) return require(made.files.empty());
    switch (built.place) {
        case Place::kAlone:
            require_signature(made, 0, kept->signature);
            check_first_part(built, made, *kept);
            break;
        case Place::kInMixed: check_in_mixed(built, made, *kept); break;
        case Place::kInSigned: check_in_signed(built, made, *kept); break;
    }
}

// A part inside has its parent's boundary, which is refused in a multipart/mixed, too.
void check_refused(const Builder& built, const Outcome& made, bool smime_v2) {
    if (made.refused == 1401) return require(!has_end_line(built.text));
    if (built.place == Place::kInMixed) return;
    require(!smime_v2 && convert_whole(built.outer.type("mixed"), built.text, false).refused == made.refused);
}

}  // namespace

// The first byte chooses the mode and how the text is cut.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FuzzHome home("UX_MAX_DEPTH = 200\n");
    std::signal(SIGPIPE, SIG_IGN);
    if (size < 2) return 0;
    const Builder built(FuzzSource({reinterpret_cast<const char*>(data) + 1, size - 1}));
    const bool smime_v2 = (data[0] & 0xC0) == 0xC0;
    const std::string type = built.place == Place::kInMixed ? built.outer.type("mixed") : built.outer.type("signed");
    const Outcome made = convert_whole(type, built.text, smime_v2);
    require(made == convert_from_pipe(type, built.text, smime_v2, 1 + data[0] % 61 + built.text.size() / 64));
    if (made.refused != 0) {
        check_refused(built, made, smime_v2);
    } else {
        require(made.end_read && has_end_line(built.text));
        check(built, made, smime_v2);
    }
    require(store_is_empty());
    return 0;
}
