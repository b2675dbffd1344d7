// Errors and logging: the lowest service. An error travels as an exception (an "escape") that carries a
// group (102: the gateway's own message set; 1: the system, reason = errno) and a reason (a catalog number).
//
// The service keeps the status of the last escape. Whoever catches er_Escape decides: er_Accept(5) has
// dealt with it (it is no longer live), er_Accept(1) found it unexpected (it stays live and travels on
// with `throw;`).
//
// er knows no configuration, no file and no catalog: it is handed its level, its sink and its texts.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

inline constexpr int kGatewayGroup = 102;  // replies, reasons and log lines of the gateway
inline constexpr int kSystemGroup = 1;     // reason is an errno value
inline constexpr int kSharedGroup = 100;   // log lines shared by several programs: 24070, 24071

// What is thrown. `detail` names the thing that failed (a path, a key) for the log; may be empty.
class er_Escape : public std::exception {
public:
    er_Escape(int group, int reason, std::string detail, const char* file, int line);
    const char* what() const noexcept override { return what_.c_str(); }
    int group() const { return group_; }
    int reason() const { return reason_; }
    const std::string& detail() const { return detail_; }
    const char* file() const { return file_; }
    int line() const { return line_; }

private:
    int group_, reason_, line_;
    const char* file_;
    std::string detail_, what_;
};

// Raises an escape: records it as the live error and throws er_Escape from the caller's source line.
[[noreturn]] void er_TracedEscape(int group, int reason, std::string detail = {}, const char* file = __builtin_FILE(),
                                  int line = __builtin_LINE());

// Raises an escape of the system group for `error` (an errno value).
[[noreturn]] void er_SystemEscape(int error, std::string detail, const char* file = __builtin_FILE(),
                                  int line = __builtin_LINE());

int er_GetGroup();  // group and reason of the last escape that was raised
int er_GetReason();
bool er_GetLive();          // has it still to travel on?
void er_Accept(int level);  // logs it at `level` with its catalog text; 5 and above: it is no longer live

// er_RecordStatus ... er_RestoreStatus: while an object lives, escapes may come and go; at its end the status is
// again what it was, so that the first error stays the one reported.
class er_StatusKeeper {
public:
    er_StatusKeeper();
    ~er_StatusKeeper();
    er_StatusKeeper(const er_StatusKeeper&) = delete;
    er_StatusKeeper& operator=(const er_StatusKeeper&) = delete;

private:
    int group_, reason_;
    bool live_;
    std::string detail_;
};

// Runs `work` and swallows its escape, the status restored: how clean-up is tried and its failure ignored.
void er_TryIgnoring(const std::function<void()>& work);

// Runs `work`; what the standard library throws in it (bad_alloc, filesystem_error, anything) leaves as an
// escape of the system group, so that handlers that accept errors see it: ENOMEM, the errno that a system_error
// carries, else EINVAL. An escape leaves as it is.
void er_Translate(const std::function<void()>& work);

// One argument of a log line.
struct er_Arg {
    er_Arg(std::string_view value) : text(value) {}
    er_Arg(const char* value) : text(value == nullptr ? "" : value) {}
    er_Arg(const std::string& value) : text(value) {}
    er_Arg(int value) : number(value), is_number(true) {}
    er_Arg(unsigned value) : number(value), is_number(true) {}
    er_Arg(long value) : number(value), is_number(true) {}
    er_Arg(long long value) : number(value), is_number(true) {}
    er_Arg(unsigned long value) : number(static_cast<std::int64_t>(value)), is_number(true) {}
    er_Arg(unsigned long long value) : number(static_cast<std::int64_t>(value)), is_number(true) {}
    std::string_view text;
    std::int64_t number = 0;
    bool is_number = false;
};

namespace er_detail {
extern int level;  // lines above it are not written
void log(int level, int set, int number, std::initializer_list<er_Arg> args);
void trace(const char* name, int entering);
}  // namespace er_detail

// Would a line of this level be written? For callers whose arguments cost something to make.
inline bool er_Wanted(int level) { return level <= er_detail::level; }

// Writes one log line: 3 error, 5 warning, 7 notice, 9 and 11 information, 12 detail, 15 trace. The text of
// (set, number) is a printf-like format with %s and %d (also %1$s); without a text the arguments stand alone.
// Control characters and bytes that are not UTF-8 are written \xNN. Never raises.
template <class... Args>
void er_LogMsg(int level, int set, int number, const Args&... args) {
    if (er_Wanted(level)) er_detail::log(level, set, number, {er_Arg(args)...});
}

// Fills a catalog format with arguments, the way er_LogMsg does but without escaping bytes.
std::string er_Format(std::string_view format, std::initializer_list<er_Arg> args);

// `text` with control characters (those of ISO 6429 in U+0080..U+009F too) and bytes that are not part of valid UTF-8
// written as \xNN.
std::string er_Printable(std::string_view text);

// Length of the well-formed UTF-8 sequence at the start of `text` (RFC 3629, section 4), 0 when there is none.
std::size_t er_utf8_length(std::string_view text);

// Traces entry and exit of a routine at level 15. Below that level it costs one comparison.
class er_Trace {
public:
    explicit er_Trace(const char* routine) : routine_(er_Wanted(15) ? routine : nullptr) {
        if (routine_ != nullptr) er_detail::trace(routine_, 1);
    }
    ~er_Trace() {
        if (routine_ != nullptr) er_detail::trace(routine_, 0);
    }
    er_Trace(const er_Trace&) = delete;
    er_Trace& operator=(const er_Trace&) = delete;

private:
    const char* routine_;
};

// One trace line at `level` (15), "102.0 enter NAME": `entering` 1 on entry, 0 ("leave") on exit.
void er_RealLogProc(int level, const char* name, int entering);

// The text of a catalog number, or an empty view when there is none. Must stay good until the next call.
using er_TextLookup = std::function<std::string_view(int set, int number)>;
using er_Sink = std::function<void(std::string_view line)>;  // gets whole lines, LF included

// Until er_SetSink is called, lines wait (at most 1,000; then the oldest go); those above the level that holds when the
// sink comes are dropped. What a sink raises is swallowed.
void er_Init(std::string_view program, int level);
void er_SetLevel(int level);
void er_SetTexts(er_TextLookup texts);
void er_SetSink(er_Sink sink);
void er_Reset();  // back to the state at process start; for tests
