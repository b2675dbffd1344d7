// Configuration keys: see cust.h. The file is turned once into a small flat map of scalar values.
#include "cust/cust.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <limits>
#include <map>
#include <variant>

#include "er/er.h"
#include "os/os.h"
#include "os/toml.h"

namespace {

constexpr std::string_view kFile = "~/sys/gateway.toml";
constexpr std::size_t kFileLimit = 1 << 20;

struct Value {
    std::variant<bool, std::int64_t, std::string> content;
    unsigned line = 0;
};

using Values = std::map<std::string, Value, std::less<>>;

struct State {
    bool loaded = false;
    std::string path;  // empty: the home's file
    Values values;
};

State& state() {
    static State the_state;
    return the_state;
}

std::string file_name() { return os_HomePath(state().path.empty() ? kFile : state().path); }

// "file:line: what", the form that editors and people know.
std::string place(unsigned line, std::string_view what) {
    return file_name() + ":" + std::to_string(line) + ": " + std::string(what);
}

[[noreturn]] void refuse(unsigned line, std::string_view what) {
    const std::string report = place(line, what);
    er_LogMsg(3, kGatewayGroup, 0, report);
    er_SystemEscape(EINVAL, report);
}

Value scalar(const os_AsciiToml& source, const std::string& key, const toml::node& node) {
    const unsigned line = node.source().begin.line;
    if (const auto* truth = node.as_boolean()) return {truth->get(), line};
    if (const auto* number = node.as_integer()) return {number->get(), line};
    if (const auto* text = node.as_string()) return {source.original(text->get()), line};
    refuse(line, "key " + key + ": a truth, a whole number or a text is wanted");
}

// A settings file is mostly comment, and parsing that takes most of the time: comment lines become empty ones, so that
// line numbers stay. A text of several lines may hold what only looks like a comment; such a file is left as it is.
std::string without_comment_lines(std::string text) {
    if (text.find("\"\"\"") != std::string::npos || text.find("'''") != std::string::npos) return text;
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
        const std::size_t first = text.find_first_not_of(" \t", at);
        if (first < end && text[first] == '#')
            out.append(end - at > 0 && text[end - 1] == '\n' ? 1 : 0, '\n');
        else
            out.append(text, at, end - at);
        at = end;
    }
    return out;
}

Values values_of(const std::string& text) {
    const os_AsciiToml source(without_comment_lines(text));
    if (source.bad_line() != 0) refuse(source.bad_line(), "not UTF-8");
    Values values;
    try {
        const toml::table table = toml::parse(source.text());
        for (const auto& [ascii_key, node] : table) {
            const std::string key = source.original(ascii_key.str());
            values.emplace(key, scalar(source, key, node));
        }
    } catch (const toml::parse_error& error) {
        refuse(error.source().begin.line, source.original(error.description()));
    }
    return values;
}

void load() {
    State& s = state();
    s.values.clear();
    const std::string name = file_name();
    if (const os_Fd file = os_open_if_there(name, O_RDONLY); file)
        er_Translate([&] { s.values = values_of(os_read_rest(file.get(), kFileLimit, name)); });
    s.loaded = true;
}

const Value* find(std::string_view key) {
    State& s = state();
    if (!s.loaded) load();
    const auto found = s.values.find(key);
    return found == s.values.end() ? nullptr : &found->second;
}

bool is_true(const Value& value) {
    if (const bool* truth = std::get_if<bool>(&value.content)) return *truth;
    if (const auto* number = std::get_if<std::int64_t>(&value.content)) return *number != 0;
    const std::string& text = std::get<std::string>(value.content);
    return !text.empty() && std::string_view("TtYy1").find(text.front()) != std::string_view::npos;
}

std::optional<int> as_int(const Value& value) {
    std::int64_t number = 0;
    if (const auto* integer = std::get_if<std::int64_t>(&value.content)) {
        number = *integer;
    } else if (const auto* text = std::get_if<std::string>(&value.content)) {
        const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
        if (error != std::errc{} || end != text->data() + text->size()) return std::nullopt;
    } else {
        return std::nullopt;
    }
    if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max()) return std::nullopt;
    return static_cast<int>(number);
}

}  // namespace

bool cust_PresentAndTrue(std::string_view key) {
    const Value* value = find(key);
    return value != nullptr && is_true(*value);
}

bool cust_PresentAndFalse(std::string_view key) {
    const Value* value = find(key);
    return value != nullptr && !is_true(*value);
}

bool cust_GetBoolean(std::string_view key, bool missing, int, int) {
    const Value* value = find(key);
    return value == nullptr ? missing : is_true(*value);
}

int cust_GetInteger(std::string_view key, int missing, int, int) {
    const Value* value = find(key);
    if (value == nullptr) return missing;
    const std::optional<int> number = as_int(*value);
    if (!number) er_LogMsg(5, kGatewayGroup, 0, place(value->line, "key " + std::string(key) + ": a number is wanted"));
    return number.value_or(missing);
}

std::optional<std::string> cust_GetCustomiseInfo(std::string_view key) {
    const Value* value = find(key);
    if (value == nullptr) return std::nullopt;
    if (const bool* truth = std::get_if<bool>(&value->content)) return *truth ? "true" : "false";
    if (const auto* number = std::get_if<std::int64_t>(&value->content)) return std::to_string(*number);
    return std::get<std::string>(value->content);
}

void cust_Reset(std::string path) { state() = State{false, std::move(path), {}}; }
