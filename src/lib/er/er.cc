// Escapes and the log: see er.h. Nothing here may raise but the two routines whose purpose it is.
#include "er/er.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <deque>
#include <filesystem>
#include <new>
#include <system_error>

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

constexpr std::size_t kWaitingLines = 1000;

struct State {
    Status status;
    std::string program = "gateway";
    er_TextLookup texts;
    er_Sink sink;
    std::deque<std::string> waiting;  // lines written before there is a sink
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

// Length of the well-formed UTF-8 sequence at the start of `text` (RFC 3629, section 4), 0 when there is none.
std::size_t utf8_length(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const auto tail = [&](std::size_t i) { return i < text.size() && (byte(i) & 0xC0) == 0x80; };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first <= 0xDF) return tail(1) ? 2 : 0;
    if (first >= 0xE0 && first <= 0xEF) {
        if (!tail(1) || !tail(2)) return 0;
        if ((first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F)) return 0;
        return 3;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        if (!tail(1) || !tail(2) || !tail(3)) return 0;
        if ((first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F)) return 0;
        return 4;
    }
    return 0;
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

void emit(std::string line) {
    State& s = state();
    if (s.sink) return s.sink(line);
    if (s.waiting.size() == kWaitingLines) s.waiting.pop_front();
    s.waiting.push_back(std::move(line));
}

std::string_view text_of(int set, int number) {
    const er_TextLookup& texts = state().texts;
    return texts ? texts(set, number) : std::string_view{};
}

std::string line_head(int level) {
    std::string line = log_time();
    line += ' ';
    line += state().program;
    line += '[';
    append_number(line, getpid());
    line += "] ";
    append_number(line, level);
    line += ' ';
    return line;
}

std::string join(std::initializer_list<er_Arg> args) {
    std::string out;
    for (const er_Arg& arg : args) {
        if (!out.empty()) out += ' ';
        append_arg(out, arg);
    }
    return out;
}

}  // namespace

er_Escape::er_Escape(int group, int reason, std::string detail, const char* file, int line)
    : group_(group), reason_(reason), line_(line), file_(file), detail_(std::move(detail)) {
    what_ = std::to_string(group) + "." + std::to_string(reason);
    if (!detail_.empty()) what_ += ": " + detail_;
}

void er_TracedEscape(int group, int reason, std::string detail, const char* file, int line) {
    Status& status = state().status;
    status = {group, reason, true, detail};
    if (er_Wanted(11)) er_LogMsg(11, kGatewayGroup, 0, "escape", group, reason, detail, file, line);
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
        std::string line = line_head(level);
        append_number(line, status.group);
        line += '.';
        append_number(line, status.reason);
        std::string text = status.group == kSystemGroup ? std::strerror(status.reason)
                                                        : er_Format(text_of(status.group, status.reason), {});
        if (!status.detail.empty()) text += (text.empty() ? "" : ": ") + status.detail;
        line += ' ' + er_Printable(text) + '\n';
        emit(std::move(line));
    } catch (...) {  // a log line that cannot be made is not worth a mail
    }
}

er_StatusKeeper::er_StatusKeeper()
    : group_(state().status.group), reason_(state().status.reason), live_(state().status.live),
      detail_(state().status.detail) {}

er_StatusKeeper::~er_StatusKeeper() { state().status = {group_, reason_, live_, std::move(detail_)}; }

void er_TryIgnoring(const std::function<void()>& work) {
    const er_StatusKeeper keeper;
    try {
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
        er_SystemEscape(error.code().value(), error.what());
    } catch (const std::exception& error) {
        er_SystemEscape(EINVAL, error.what());
    }
}

void er_detail::log(int level, int set, int number, std::initializer_list<er_Arg> args) {
    try {
        std::string line = line_head(level);
        append_number(line, set);
        line += '.';
        append_number(line, number);
        const std::string_view format = text_of(set, number);
        line += ' ' + er_Printable(format.empty() ? join(args) : er_Format(format, args)) + '\n';
        emit(std::move(line));
    } catch (...) {  // the mail goes on without its log line
    }
}

void er_detail::trace(const char* name, int entering) { er_RealLogProc(15, name, entering); }

void er_RealLogProc(int level, const char* name, int entering) {
    if (!er_Wanted(level)) return;
    er_TryIgnoring([&] { emit(line_head(level) + (entering != 0 ? "enter " : "leave ") + name + '\n'); });
}

std::string er_Format(std::string_view format, std::initializer_list<er_Arg> args) {
    std::string out;
    std::size_t next = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%' || i + 1 == format.size()) {
            out += format[i];
            continue;
        }
        std::size_t at = i + 1;
        if (format[at] == '%') {
            out += '%';
            i = at;
            continue;
        }
        std::size_t digits = at;
        while (digits < format.size() && format[digits] >= '0' && format[digits] <= '9') ++digits;
        std::size_t which = next;
        if (digits > at && digits < format.size() && format[digits] == '$') {  // %2$s: a translation's own order
            std::from_chars(format.data() + at, format.data() + digits, which);
            which -= 1;
            at = digits + 1;
        } else {
            at = digits;
        }
        while (at < format.size() && format[at] == 'l') ++at;
        if (at >= format.size() || (format[at] != 's' && format[at] != 'd' && format[at] != 'u')) {
            out += format[i];
            continue;
        }
        if (which < args.size()) append_arg(out, args.begin()[which]);
        ++next;
        i = at;
    }
    return out;
}

std::string er_Printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text.front());
        const std::size_t length = byte < 0x20 || byte == 0x7F ? 0 : utf8_length(text);
        if (length == 0) {
            append_hex(out, byte);
            text.remove_prefix(1);
            continue;
        }
        out.append(text.substr(0, length));
        text.remove_prefix(length);
    }
    return out;
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
    for (const std::string& line : s.waiting) s.sink(line);
    s.waiting.clear();
}

void er_Reset() {
    state() = State{};
    er_detail::level = 7;
}
