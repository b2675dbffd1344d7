// Audit trail: see aud.h.
#include "aud/aud.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <optional>

#include "cust/cust.h"
#include "er/er.h"
#include "os/os.h"

namespace {

constexpr std::string_view kTrail = "~/logs/audit.jsonl";
constexpr std::string_view kScratchFolder = "~/tmp";
constexpr std::size_t kKept = std::size_t{128} << 10;  // of a transaction's entries in memory

// The entries of the open transaction: JSON, inside the brackets. A message may name a million identifiers, so what is
// many goes to a nameless file. What cannot be kept there is lost, and said so at the end: mail goes before its record.
class Entries {
public:
    void clear() { *this = Entries(); }
    void begin(int code) {
        if (any_) memory_ += ',';
        any_ = true;
        memory_ += "{\"code\":" + std::to_string(code);
    }
    void add(std::string_view json) {
        memory_ += json;
        if (memory_.size() >= kKept) spill();
    }
    // Writes head, entries and tail to the trail: in one piece, unless they are many.
    void write_to(int trail, const std::string& head, std::string_view tail) const {
        if (lost_ != 0) er_SystemEscape(lost_, "the entries could not be kept");
        if (!file_) return os_write_all(trail, head + memory_ + std::string(tail));
        os_write_all(trail, head);
        std::string block(kKept, '\0');
        for (std::uint64_t at = 0; at < spilled_; at += block.size())
            os_write_all(trail, {block.data(), os_pread(file_.get(), block.data(), block.size(), at)});
        os_write_all(trail, memory_ + std::string(tail));
    }

private:
    void spill() {
        try {
            const er_StatusKeeper keeper;
            if (!file_) file_ = os_open_unnamed(kScratchFolder);
            os_pwrite_all(file_.get(), memory_, spilled_);
        } catch (const er_Escape& escape) {
            lost_ = escape.reason();
        }
        spilled_ += memory_.size();
        memory_.clear();
    }

    std::string memory_;  // what follows the spilled part
    os_Fd file_;
    std::uint64_t spilled_ = 0;
    int lost_ = 0;  // why entries are missing
    bool any_ = false;
};

struct State {
    std::optional<bool> enabled;  // nothing: not read yet
    int last_handle = 0;
    int open_handle = kAudNone;
    Entries entries;
    int type = 0;
};

State& state() {
    static State the_state;
    return the_state;
}

bool is_open(int handle) { return handle != kAudNone && handle == state().open_handle; }

void append_utf8(std::string& out, unsigned char latin1) {
    out += static_cast<char>(0xC0 | (latin1 >> 6));
    out += static_cast<char>(0x80 | (latin1 & 0x3F));
}

std::string line_head(const State& s) {
    return "{\"type\":" + std::to_string(s.type) + ",\"time\":" + std::to_string(os_Date().seconds) +
           ",\"pid\":" + std::to_string(::getpid()) + ",\"entries\":[";
}

// Keeps the others out until the trail is closed: a file grows page by page while somebody writes to it, so that its
// end says nothing.
void lock(int trail) {
    while (::flock(trail, LOCK_EX) != 0)
        if (errno != EINTR) er_SystemEscape(errno, "lock");
}

// Whether the trail ends within a line: the writer before us met a full disk.
bool is_cut(int trail) {
    const std::uint64_t size = os_fsize(trail);
    char last = '\n';
    if (size != 0) os_pread(trail, &last, 1, size - 1);
    return last != '\n';
}

void append_line(const State& s) {
    const os_Fd trail = os_open(kTrail, O_RDWR | O_APPEND | O_CREAT, 0600);
    lock(trail.get());
    s.entries.write_to(trail.get(), (is_cut(trail.get()) ? "\n" : "") + line_head(s), "]}\n");
}

// The bytes at the front that JSON takes as they are: nearly always all of them.
std::size_t plain_run(std::string_view text) {
    const auto odd = std::find_if(text.begin(), text.end(), [](unsigned char byte) {
        return byte < 0x20 || byte >= 0x7F || byte == '"' || byte == '\\';
    });
    return static_cast<std::size_t>(odd - text.begin());
}

}  // namespace

std::string aud_json_string(std::string_view text) {
    constexpr std::string_view hex = "0123456789abcdef";
    std::string out = "\"";
    out.reserve(text.size() + 2);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::size_t plain = plain_run(text.substr(i));
        out.append(text, i, plain);
        i += plain;
        if (i == text.size()) break;
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == '"' || byte == '\\') {
            out += '\\';
            out += text[i];
        } else if (byte < 0x20 || byte == 0x7F) {
            out += "\\u00";
            out += hex[byte >> 4];
            out += hex[byte & 15];
        } else if (const std::size_t length = er_utf8_length(text.substr(i, 4)); length != 0) {
            out.append(text.substr(i, length));
            i += length - 1;
        } else {
            append_utf8(out, byte);
        }
    }
    return out += '"';
}

void aud_GetSetLogConfig(int) { state().enabled.reset(); }

int aud_StartTransaction(int type) {
    State& s = state();
    if (!s.enabled) s.enabled = cust_GetBoolean("AUDIT", true);
    s.open_handle = ++s.last_handle;
    s.entries.clear();
    s.type = type;
    return s.open_handle;
}

void aud_LogCurrentTime(int handle, int code) {
    if (!is_open(handle)) return;
    state().entries.begin(code);
    state().entries.add(",\"time\":" + std::to_string(os_Date().seconds) + "}");
}

void aud_LogStr(int handle, int code, std::string_view text) {
    if (!is_open(handle)) return;
    state().entries.begin(code);
    state().entries.add(",\"text\":" + aud_json_string(text) + "}");
}

void aud_LogORNandInet(int handle, int code, std::string_view name, std::string_view inet) {
    if (!is_open(handle)) return;
    state().entries.begin(code);
    state().entries.add(",\"name\":" + aud_json_string(name) + ",\"inet\":" + aud_json_string(inet) + "}");
}

void aud_EndTransaction(int& handle) {
    if (is_open(handle) && state().enabled.value_or(true)) {
        try {
            const er_StatusKeeper keeper;
            append_line(state());
        } catch (const std::exception& failure) {  // the message is queued by now: whatever it is, it stays here
            er_LogMsg(3, kGatewayGroup, 0, "audit trail", failure.what());
        }
    }
    aud_AbortTransaction(handle);
}

void aud_AbortTransaction(int& handle) {
    if (is_open(handle)) {
        state().open_handle = kAudNone;
        state().entries.clear();
    }
    handle = kAudNone;
}
