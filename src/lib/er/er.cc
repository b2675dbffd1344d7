// Escapes and the log: see er.h. Nothing here may raise but the two routines whose purpose it is.
#include "er/er.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <deque>
#include <new>
#include <optional>
#include <system_error>
#include <utility>

namespace er_detail {
int level = 7;
}

namespace {

struct Status {
    int group = 0;
    int reason = 0;
    bool live = false;
    std::string detail;
};

struct Line {
    int level;
    std::string text;
};

constexpr std::size_t kWaitingLines = 1000;

struct State {
    Status status;
    std::string program = "gateway";
    er_TextLookup texts;
    er_Sink sink;
    std::deque<Line> waiting;  // written before there is a sink
};

State& state() {
    static State the_state;
    return the_state;
}

void append_number(std::string& out, std::int64_t value) {
    std::array<char, 24> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    out.append(digits.data(), end);
}

void append_arg(std::string& out, const er_Arg& arg) {
    if (arg.is_number) return append_number(out, arg.number);
    out.append(arg.text);
}

// Whether `text`, which starts with a whole UTF-8 character, starts with a control character: U+0000..U+001F and
// U+007F..U+009F, the second range because terminals obey it (U+009B starts an escape sequence).
bool starts_with_control(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) return first < 0x20 || first == 0x7F;
    return first == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0;
}

void append_hex(std::string& out, unsigned char byte) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    out += "\\x";
    out += digits[byte >> 4];
    out += digits[byte & 15];
}

// "2026-11-20T21:22:33.123456Z"
std::string log_time() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    gmtime_r(&now.tv_sec, &parts);
    std::array<char, 32> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::string out(text.data(), length);
    std::string micros = std::to_string(now.tv_nsec / 1000);
    out += '.';
    out.append(6 - micros.size(), '0');
    return out + micros + 'Z';
}

void emit(int level, std::string text) {
    State& s = state();
    if (s.sink) return s.sink(text);
    if (s.waiting.size() == kWaitingLines) s.waiting.pop_front();
    s.waiting.push_back({level, std::move(text)});
}

std::string_view text_of(int set, int number) {
    const er_TextLookup& texts = state().texts;
    return texts ? texts(set, number) : std::string_view{};
}

// "2026-11-20T21:22:33.123456Z unix.in[4711] 9 102.1505 "
std::string line_head(int level, int set, int number) {
    std::string line = log_time();
    line += ' ';
    line += state().program;
    line += '[';
    append_number(line, getpid());
    line += "] ";
    append_number(line, level);
    line += ' ';
    append_number(line, set);
    line += '.';
    append_number(line, number);
    line += ' ';
    return line;
}

// The name of this host, as a refusal shows it: the texts of reasons that become replies have a place for it.
std::string host_name() {
    std::array<char, 65> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "localhost";
}

// "102.1401"'s text, or the system's for an errno value, with the name of what failed.
std::string text_of(const Status& status) {
    std::string text = status.group == kSystemGroup ? std::strerror(status.reason)
                                                    : er_Format(text_of(status.group, status.reason), {host_name()});
    if (!text.empty() && !status.detail.empty()) text += ": ";
    return text += status.detail;
}

std::string join(std::initializer_list<er_Arg> args) {
    std::string out;
    for (const er_Arg& arg : args) {
        if (!out.empty()) out += ' ';
        append_arg(out, arg);
    }
    return out;
}

// A conversion of a catalog format: %s, %d, %u, a width and "l" ignored, or %2$s, a translation's own order, or %%.
struct Conversion {
    std::size_t length = 0;  // 0: the text starts with none
    bool percent = false;
    std::optional<std::size_t> position;  // from 0
};

Conversion conversion_at(std::string_view text) {
    if (!text.starts_with('%')) return {};
    if (text.starts_with("%%")) return {2, true, {}};
    Conversion found;
    std::size_t at = std::min(text.find_first_not_of("0123456789", 1), text.size());
    if (at > 1 && at < text.size() && text[at] == '$') {
        std::size_t number = 0;  // stays so when it is too large, and no argument has position -1
        std::from_chars(text.data() + 1, text.data() + at, number);
        found.position = number - 1;
        ++at;
    }
    at = std::min(text.find_first_not_of('l', at), text.size());
    if (at == text.size() || std::string_view("sdu").find(text[at]) == std::string_view::npos) return {};
    found.length = at + 1;
    return found;
}

// A file's name without its folders, which tell about the machine that compiled it.
std::string_view file_name(const char* file) {
    const std::string_view path = file;
    return path.substr(path.rfind('/') + 1);
}

// The errno value of an error code of the standard library, whose other categories number their own way.
int errno_of(const std::error_code& code) {
    const bool is_errno = code.category() == std::generic_category() || code.category() == std::system_category();
    return is_errno ? code.value() : EINVAL;
}

}  // namespace

er_Escape::er_Escape(int group, int reason, std::string detail, const char* file, int line)
    : group_(group), reason_(reason), line_(line), file_(file), detail_(std::move(detail)) {
    what_ = std::to_string(group) + "." + std::to_string(reason);
    if (!detail_.empty()) what_ += ": " + detail_;
}

void er_TracedEscape(int group, int reason, std::string detail, const char* file, int line) {
    state().status = {group, reason, true, detail};
    er_LogMsg(11, kGatewayGroup, 0, "escape", group, reason, detail, file_name(file), line);
    throw er_Escape(group, reason, std::move(detail), file, line);
}

void er_SystemEscape(int error, std::string detail, const char* file, int line) {
    er_TracedEscape(kSystemGroup, error, std::move(detail), file, line);
}

int er_GetGroup() { return state().status.group; }
int er_GetReason() { return state().status.reason; }
bool er_GetLive() { return state().status.live; }

void er_Accept(int level) {
    Status& status = state().status;
    if (level >= 5) status.live = false;
    if (!er_Wanted(level)) return;
    try {
        emit(level, line_head(level, status.group, status.reason) + er_Printable(text_of(status)) + '\n');
    } catch (...) {  // a log line that cannot be made is not worth a mail
    }
}

er_StatusKeeper::er_StatusKeeper()
    : group_(state().status.group),
      reason_(state().status.reason),
      live_(state().status.live),
      detail_(state().status.detail) {}

er_StatusKeeper::~er_StatusKeeper() { state().status = {group_, reason_, live_, std::move(detail_)}; }

void er_TryIgnoring(const std::function<void()>& work) {
    try {
        const er_StatusKeeper keeper;
        work();
    } catch (...) {  // the first error stays the one reported
    }
}

void er_Translate(const std::function<void()>& work) {
    try {
        work();
    } catch (const er_Escape&) {
        throw;
    } catch (const std::bad_alloc&) {
        er_SystemEscape(ENOMEM, "memory");
    } catch (const std::system_error& error) {
        er_SystemEscape(errno_of(error.code()), error.what());
    } catch (const std::exception& error) {
        er_SystemEscape(EINVAL, error.what());
    } catch (...) {
        er_SystemEscape(EINVAL, "unknown exception");
    }
}

void er_detail::log(int line_level, int set, int number, std::initializer_list<er_Arg> args) {
    try {
        const std::string_view format = text_of(set, number);
        const std::string text = format.empty() ? join(args) : er_Format(format, args);
        emit(line_level, line_head(line_level, set, number) + er_Printable(text) + '\n');
    } catch (...) {  // the mail goes on without its log line
    }
}

void er_detail::trace(const char* name, int entering) { er_RealLogProc(15, name, entering); }

void er_RealLogProc(int level, const char* name, int entering) {
    if (!er_Wanted(level)) return;
    try {
        emit(level, line_head(level, kGatewayGroup, 0) + (entering != 0 ? "enter " : "leave ") + name + '\n');
    } catch (...) {  // as for every line
    }
}

std::string er_Format(std::string_view format, std::initializer_list<er_Arg> args) {
    std::string out;
    std::size_t next = 0;
    for (std::size_t at = 0; at < format.size();) {
        const Conversion found = conversion_at(format.substr(at));
        if (found.length == 0) {
            out += format[at++];
            continue;
        }
        at += found.length;
        if (found.percent) {
            out += '%';
            continue;
        }
        const std::size_t which = found.position.value_or(next);
        if (which < args.size()) append_arg(out, args.begin()[which]);
        ++next;
    }
    return out;
}

std::string er_Printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = er_utf8_length(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
        if (length != 0 && !starts_with_control(text))
            out.append(character);
        else
            for (const char byte : character) append_hex(out, static_cast<unsigned char>(byte));
        text.remove_prefix(character.size());
    }
    return out;
}

std::size_t er_utf8_length(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const auto tail = [&](std::size_t i) { return i < text.size() && (byte(i) & 0xC0) == 0x80; };
    if (text.empty()) return 0;
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first <= 0xDF) return tail(1) ? 2 : 0;
    if (first >= 0xE0 && first <= 0xEF) {
        if (!tail(1) || !tail(2)) return 0;
        return (first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F) ? 0 : 3;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        if (!tail(1) || !tail(2) || !tail(3)) return 0;
        return (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F) ? 0 : 4;
    }
    return 0;
}

void er_Init(std::string_view program, int level) {
    state().program = program;
    er_detail::level = level;
}

void er_SetLevel(int level) { er_detail::level = level; }

void er_SetTexts(er_TextLookup texts) { state().texts = std::move(texts); }

void er_SetSink(er_Sink sink) {
    State& s = state();
    s.sink = std::move(sink);
    if (!s.sink) return;
    const std::deque<Line> waiting = std::exchange(s.waiting, {});
    for (const Line& line : waiting) {
        try {
            if (er_Wanted(line.level)) s.sink(line.text);
        } catch (...) {  // a log line that cannot be written is not worth a mail
        }
    }
}

void er_Reset() {
    State fresh;
    state() = std::move(fresh);
    er_detail::level = 7;
}
