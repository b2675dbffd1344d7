// Audit trail: see aud.h.
#include "aud/aud.h"

#include <fcntl.h>
#include <unistd.h>

#include "cust/cust.h"
#include "er/er.h"
#include "os/os.h"

namespace {

constexpr std::string_view kTrail = "~/logs/audit.jsonl";

struct State {
    bool enabled = true;
    int last_handle = 0;
    int open_handle = kAudNone;
    std::string entries;  // JSON so far, inside the brackets
    int type = 0;
};

State& state() {
    static State the_state;
    return the_state;
}

bool is_open(int handle) { return handle != kAudNone && handle == state().open_handle; }

void begin_entry(int code) {
    std::string& entries = state().entries;
    if (!entries.empty()) entries += ',';
    entries += "{\"code\":" + std::to_string(code);
}

void append_utf8(std::string& out, unsigned char latin1) {
    out += static_cast<char>(0xC0 | (latin1 >> 6));
    out += static_cast<char>(0x80 | (latin1 & 0x3F));
}

// Whether a well-formed UTF-8 sequence of two or more bytes starts at `text`; its length then, else 0.
std::size_t multibyte_length(std::string_view text) {
    // er_Printable keeps well-formed sequences and rewrites all else, so it answers for every candidate length.
    for (std::size_t length = 2; length <= 4 && length <= text.size(); ++length)
        if (er_Printable(text.substr(0, length)) == text.substr(0, length)) return length;
    return 0;
}

}  // namespace

std::string aud_json_string(std::string_view text) {
    constexpr std::string_view hex = "0123456789abcdef";
    std::string out = "\"";
    out.reserve(text.size() + 2);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == '"' || byte == '\\') {
            out += '\\';
            out += text[i];
        } else if (byte < 0x20 || byte == 0x7F) {
            out += "\\u00";
            out += hex[byte >> 4];
            out += hex[byte & 15];
        } else if (byte < 0x80) {
            out += text[i];
        } else if (const std::size_t length = multibyte_length(text.substr(i, 4)); length != 0) {
            out.append(text.substr(i, length));
            i += length - 1;
        } else {
            append_utf8(out, byte);
        }
    }
    return out += '"';
}

void aud_GetSetLogConfig(int) { state().enabled = cust_GetBoolean("AUDIT", true); }

int aud_StartTransaction(int type) {
    State& s = state();
    s.open_handle = ++s.last_handle;
    s.entries.clear();
    s.type = type;
    return s.open_handle;
}

void aud_LogCurrentTime(int handle, int code) {
    if (!is_open(handle)) return;
    begin_entry(code);
    state().entries += ",\"time\":" + std::to_string(os_Date().seconds) + "}";
}

void aud_LogStr(int handle, int code, std::string_view text) {
    if (!is_open(handle)) return;
    begin_entry(code);
    state().entries += ",\"text\":" + aud_json_string(text) + "}";
}

void aud_LogORNandInet(int handle, int code, std::string_view name, std::string_view inet) {
    if (!is_open(handle)) return;
    begin_entry(code);
    state().entries += ",\"name\":" + aud_json_string(name) + ",\"inet\":" + aud_json_string(inet) + "}";
}

void aud_EndTransaction(int& handle) {
    State& s = state();
    if (is_open(handle) && s.enabled) {
        const er_StatusKeeper keeper;
        try {
            const std::string line = "{\"type\":" + std::to_string(s.type) + ",\"time\":" + std::to_string(os_Date().seconds) +
                                     ",\"pid\":" + std::to_string(::getpid()) + ",\"entries\":[" + s.entries + "]}\n";
            const os_Fd trail = os_open(kTrail, O_WRONLY | O_APPEND | O_CREAT, 0600);
            os_write_all(trail.get(), line);
        } catch (const er_Escape& escape) {
            er_LogMsg(3, kGatewayGroup, 0, "audit trail", escape.what());
        }
    }
    aud_AbortTransaction(handle);
}

void aud_AbortTransaction(int& handle) {
    handle = kAudNone;
    state().open_handle = kAudNone;
    state().entries.clear();
}
