// Content types: see content_type.h. The map is two sorted lists, of types and of extensions. A file that looks as ours
// does is read as the plain list that it is: all of TOML would take half a millisecond of every process that meets
// MIME.
#include "mim/content_type.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "ccs/ccs.h"
#include "dstring/ascii.h"
#include "er/er.h"
#include "mim/encoded_words.h"
#include "mim/mim.h"
#include "msl/msl.h"
#include "os/os.h"
#include "os/toml.h"

namespace {

constexpr std::string_view kFile = "~/sys/mimetypes.toml";
constexpr std::size_t kFileLimit = 1 << 20;
constexpr std::string_view kCharset = "charset";
constexpr std::string_view kStarredCharset = "charset*";

struct BuiltInRow {
    std::string_view mime;
    std::int32_t code;
};
constexpr BuiltInRow kBuiltIn[] = {
    {"text/plain", kPlainTextCode},
    {"text/html", kHtmlCode},
    {"application/ms-tnef", 1734},
    {"application/vnd.ms-tnef", 1734},
    {"text/calendar", 2191},
    {"application/rtf", 2130},
    {"text/rtf", 2130},
    {"application/ploxen-prop", 3100},
    {"application/x-ploxen-distlist", 1166},
};

// Names in lower case, each with its code.
class Codes {
public:
    struct Row {
        std::string name;
        std::int32_t code;
        unsigned line;  // of the file
    };

    void add(std::string name, std::int32_t code, unsigned line) {
        std::ranges::transform(name, name.begin(), dstring_lower);
        rows_.push_back({std::move(name), code, line});
    }
    // Makes it ready for find(). The rows that repeat an earlier one are given to `report` and go.
    template <class Report>
    void sort(Report&& report) {
        std::ranges::stable_sort(rows_, {}, &Row::name);
        for (std::size_t at = 1; at < rows_.size(); ++at)
            if (rows_[at].name == rows_[at - 1].name) report(rows_[at]);
        const auto same = [](const Row& one, const Row& other) { return one.name == other.name; };
        rows_.erase(std::unique(rows_.begin(), rows_.end(), same), rows_.end());
    }
    std::optional<std::int32_t> find(std::string_view name) const {
        std::string wanted(name);
        std::ranges::transform(wanted, wanted.begin(), dstring_lower);
        const auto found = std::ranges::lower_bound(rows_, wanted, {}, &Row::name);
        if (found == rows_.end() || found->name != wanted) return std::nullopt;
        return found->code;
    }

private:
    std::vector<Row> rows_;
};

struct TypeMap {
    Codes types, extensions;
};

struct State {
    bool loaded = false;
    std::string path;  // empty: the home's file
    TypeMap map;
};

State& state() {
    static State the_state;
    return the_state;
}

std::string file_name_of_map() { return os_HomePath(state().path.empty() ? kFile : state().path); }

std::string place(unsigned line, std::string_view what) {
    return file_name_of_map() + ":" + std::to_string(line) + ": " + std::string(what);
}

void warn(unsigned line, std::string_view what) { er_LogMsg(5, kGatewayGroup, 0, place(line, what)); }

[[noreturn]] void refuse(unsigned line, std::string_view what) {
    const std::string report = place(line, what);
    er_LogMsg(3, kGatewayGroup, 0, report);
    er_SystemEscape(EINVAL, report);
}

void sort_map(TypeMap& map) {
    map.types.sort([](const Codes::Row& row) { warn(row.line, "type " + row.name + " has a row already"); });
    map.extensions.sort([](const Codes::Row& row) { warn(row.line, "extension " + row.name + " has a row already"); });
}

// The part of TOML that such a file is written in:
//
//   file = filling "type" "=" "[" filling [ row *( filling "," filling row ) filling [ "," filling ] ] "]" filling
//   row  = "{" "mime" "=" text "," "code" "=" number "," "extensions" "=" "[" [ text *( "," text ) ] "]" "}"
//
// with blanks between any two of them; filling is blanks, line ends (LF) and comments; a text is in quotation marks,
// without quotation marks and backslashes in it; all is printable ASCII. What is of any other form, be it good TOML or
// bad, is not read at all, and left to the parser.
class PlainMap {
public:
    explicit PlainMap(std::string_view text) : rest_(text) {}

    std::optional<TypeMap> read() {
        const auto strange = [](char c) { return c != '\n' && (c < 0x20 || c > 0x7E); };
        if (std::ranges::any_of(rest_, strange) || !read_file()) return std::nullopt;
        return std::move(map_);
    }

private:
    bool read_file() {
        skip_filling();
        if (!take("type") || !take("=") || !take("[")) return false;
        skip_filling();
        while (!take("]")) {
            if (!read_row()) return false;
            skip_filling();
            const bool more = take(",");
            skip_filling();
            if (!more && !rest_.starts_with(']')) return false;
        }
        skip_filling();
        return rest_.empty();
    }
    bool read_row() {
        std::string_view mime;
        std::int32_t code = 0;
        if (!take("{") || !take("mime") || !take("=") || !take_text(mime) || mime.find('/') == mime.npos) return false;
        if (!take(",") || !take("code") || !take("=") || !take_number(code)) return false;
        map_.types.add(std::string(mime), code, line_);
        return take(",") && take("extensions") && take("=") && read_extensions(code) && take("}");
    }
    bool read_extensions(std::int32_t code) {
        if (!take("[")) return false;
        if (take("]")) return true;
        do {
            std::string_view extension;
            if (!take_text(extension)) return false;
            map_.extensions.add(std::string(extension), code, line_);
        } while (take(","));
        return take("]");
    }

    void skip_blanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(' '), rest_.size())); }
    void skip_filling() {
        for (skip_blanks(); !rest_.empty(); skip_blanks()) {
            if (rest_.front() == '#') rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size()));
            if (!rest_.starts_with('\n')) return;
            rest_.remove_prefix(1);
            ++line_;
        }
    }
    bool take(std::string_view word) {
        skip_blanks();
        if (!rest_.starts_with(word)) return false;
        rest_.remove_prefix(word.size());
        return true;
    }
    bool take_text(std::string_view& text) {
        if (!take("\"")) return false;
        const std::size_t end = rest_.find_first_of("\"\\\n");
        if (end == rest_.npos || rest_[end] != '"') return false;
        text = rest_.substr(0, end);
        rest_.remove_prefix(end + 1);
        return !(text.empty() && rest_.starts_with('"'));  // three marks begin a text of several lines
    }
    bool take_number(std::int32_t& number) {
        skip_blanks();
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
        const auto digits = static_cast<std::size_t>(end - rest_.data());
        if (error != std::errc() || number < 0 || rest_.front() == '-') return false;
        if (rest_.front() == '0' && digits > 1) return false;
        rest_.remove_prefix(digits);
        return true;
    }

    std::string_view rest_;
    unsigned line_ = 1;
    TypeMap map_;
};

class MapFile {
public:
    explicit MapFile(const os_AsciiToml& source) : source_(source) {}

    TypeMap read(const toml::table& file) {
        for (const auto& [key, node] : file) {
            if (key.str() == "type")
                read_rows(node);
            else
                warn(line_of(node), "key " + source_.original(key.str()) + " has no meaning here");
        }
        sort_map(map_);
        return std::move(map_);
    }

private:
    static unsigned line_of(const toml::node& node) { return node.source().begin.line; }

    void read_rows(const toml::node& node) {
        const toml::array* rows = node.as_array();
        if (rows == nullptr) refuse(line_of(node), "key type: a list of tables is wanted");
        for (const toml::node& row : *rows) {
            const toml::table* table = row.as_table();
            if (table == nullptr) refuse(line_of(row), "key type: a list of tables is wanted");
            read_row(*table);
        }
    }
    void read_row(const toml::table& row) {
        for (const auto& [key, node] : row)
            if (key != "mime" && key != "code" && key != "extensions")
                warn(line_of(node), "key " + source_.original(key.str()) + " of a type has no meaning here");
        const std::int32_t code = code_of(row);
        map_.types.add(mime_of(row), code, line_of(row));
        const toml::node* node = row.get("extensions");
        if (node == nullptr) return;
        const toml::array* extensions = node->as_array();
        if (extensions == nullptr) refuse(line_of(*node), "key extensions: a list of texts is wanted");
        for (const toml::node& extension : *extensions) {
            const auto* text = extension.as_string();
            if (text == nullptr) refuse(line_of(extension), "key extensions: a list of texts is wanted");
            map_.extensions.add(source_.original(text->get()), code, line_of(extension));
        }
    }
    std::string mime_of(const toml::table& row) const {
        const toml::node* node = row.get("mime");
        if (node == nullptr) refuse(line_of(row), "key mime is missing");
        const auto* text = node->as_string();
        if (text == nullptr || text->get().find('/') == std::string::npos)
            refuse(line_of(*node), "key mime: a type with \"/\" is wanted");
        return source_.original(text->get());
    }
    std::int32_t code_of(const toml::table& row) const {
        const toml::node* node = row.get("code");
        if (node == nullptr) refuse(line_of(row), "key code is missing");
        const auto* number = node->as_integer();
        if (number == nullptr || number->get() < 0 || number->get() > std::numeric_limits<std::int32_t>::max())
            refuse(line_of(*node), "key code: a number from 0 to 2147483647 is wanted");
        return static_cast<std::int32_t>(number->get());
    }

    const os_AsciiToml& source_;
    TypeMap map_;
};

TypeMap map_of(std::string_view text) {
    if (std::optional<TypeMap> plain = PlainMap(text).read()) {
        sort_map(*plain);
        return *std::move(plain);
    }
    const os_AsciiToml source(text);
    if (source.bad_line() != 0) refuse(source.bad_line(), "not UTF-8");
    try {
        return MapFile(source).read(toml::parse(source.text()));
    } catch (const toml::parse_error& error) {
        refuse(error.source().begin.line, source.original(error.description()));
    }
}

TypeMap built_in() {
    TypeMap map;
    for (const BuiltInRow& row : kBuiltIn) map.types.add(std::string(row.mime), row.code, 0);
    map.types.sort([](const Codes::Row&) {});
    return map;
}

const TypeMap& type_map() {
    State& s = state();
    if (s.loaded) return s.map;
    const std::string name = file_name_of_map();
    if (const os_Fd file = os_open_if_there(name, O_RDONLY); file)
        er_Translate([&] { s.map = map_of(os_read_rest(file.get(), kFileLimit, name)); });
    else
        s.map = built_in();
    s.loaded = true;
    return s.map;
}

// "text / plain charset=..." (a semicolon is missing) is text/plain; without "/" all types are.
std::string bare_type(std::string_view value) {
    const std::size_t slash = value.find('/');
    if (slash == std::string_view::npos) return "text/plain";
    std::string_view subtype = mim_SpaceTrimming(value.substr(slash + 1));
    subtype = subtype.substr(0, subtype.find_first_of(" \t\r\n"));
    return std::string(mim_SpaceTrimming(value.substr(0, slash))).append("/").append(subtype);
}

// A set counts as it is known here; an empty one is none.
std::string charset_of(const msl_Field& field) {
    auto parameter = field.parameter(kCharset);
    if (!parameter) parameter = field.parameter(kStarredCharset);
    if (!parameter) return {};
    const std::string_view label = mim_SpaceTrimming(parameter->value);
    return std::string(ccs_native_name(label).substr(0, kSetNameLimit));
}

std::int32_t code_of_type(const std::string& type, std::string_view file_name) {
    if (dstring_equal_ignoring_case(type, "application/octet-stream"))
        if (const auto code = mim_FileExtToQNType(file_name)) return *code;
    if (const auto code = type_map().types.find(type)) return *code;
    return dstring_starts_ignoring_case(type, "text/") ? kPlainTextCode : kBinaryCode;
}

bool is_plain_set(std::string_view set) { return set.empty() || set == kAsciiSet || set == kLatin1Set; }

// What may stand in a parameter's value without quotes.
std::string as_token(std::string_view name) {
    std::string token;
    for (const char c : name)
        if (c > 0x20 && c < 0x7F && std::string_view("()<>@,;:\\\"/[]?=").find(c) == std::string_view::npos) token += c;
    return token;
}

bool has_charset(const std::string& type, std::string_view name) {
    const auto parameter = msl_Field(type).parameter(kCharset);
    return parameter && parameter->value == name;
}

// `text` in place of what stands from `begin` to `end`. Where quotes ended the value and something stands directly
// behind them, a semicolon ends it now.
std::string put_over(std::string type, std::size_t begin, std::size_t end, const std::string& text,
                     std::string_view name) {
    type.replace(begin, end - begin, text);
    if (!has_charset(type, name)) type.insert(begin + text.size(), 1, ';');
    return type;
}

std::string put_behind(std::string type, std::string_view name) {
    type.erase(type.find_last_not_of("; \t\r\n") + 1);
    return type.append("; charset=").append(name);
}

}  // namespace

mim_QNType mim_MimeToQNType(std::string_view content_type, std::string_view file_name) {
    const er_Trace trace("mim_MimeToQNType");
    const msl_Field field(content_type);
    mim_QNType result{code_of_type(bare_type(field.value()), file_name), charset_of(field)};
    if (result.lQNFileCode == kPlainTextCode && !is_plain_set(result.QNCharSet)) result.lQNFileCode = kOtherSetTextCode;
    return result;
}

std::optional<std::int32_t> mim_FileExtToQNType(std::string_view file_name) {
    const er_Trace trace("mim_FileExtToQNType");
    const std::string name = mim_DecodeMimeCharStr(file_name);
    const std::string_view trimmed = mim_SpaceTrimming(name);
    const std::size_t mark = trimmed.find_last_of("./\\");
    if (mark == std::string_view::npos || trimmed[mark] != '.') return std::nullopt;
    return type_map().extensions.find(trimmed.substr(mark + 1));
}

std::string mim_InsertNewCSName(std::string_view content_type, std::string_view native_set) {
    const er_Trace trace("mim_InsertNewCSName");
    const ccs_Descriptor* set = ccs_GetCSDescriptor2(native_set);
    const std::string name = set != nullptr ? std::string(set->mime) : as_token(native_set);
    std::string type(content_type);
    if (name.empty()) return type;

    const msl_Field field(content_type);
    if (const auto plain = field.parameter(kCharset))
        type = put_over(std::move(type), plain->value_begin, plain->value_end, name, name);
    else if (const auto starred = field.parameter(kStarredCharset))
        type = put_over(std::move(type), starred->name_begin, starred->value_end, "charset=" + name, name);
    else
        type = put_behind(std::move(type), name);
    if (has_charset(type, name)) return type;
    // The old value held what kept a comment before it open, and now that comment swallows the new one.
    const std::string bare = bare_type(field.value());
    const std::size_t slash = bare.find('/');
    return put_behind(as_token(bare.substr(0, slash)) + '/' + as_token(bare.substr(slash + 1)), name);
}

void mim_reset_types(std::string path) { state() = State{false, std::move(path), {}}; }
