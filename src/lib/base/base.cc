// Detection of character sets: see base.h.
#include "base/base.h"

#include <new>

#include <uchardet/uchardet.h>

#include "ccs/ccs.h"

struct base_Detector::Engine {
    Engine() : handle(uchardet_new()) {
        if (handle == nullptr) throw std::bad_alloc();
    }
    ~Engine() { uchardet_delete(handle); }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    void feed(std::string_view data) { uchardet_handle_data(handle, data.data(), data.size()); }

    uchardet_t handle;
};

namespace {

// A whole character of two bytes, as accents, Greek, Cyrillic are: taken at once, because there are many.
bool is_pair(std::string_view data) {
    if (data.size() < 2) return false;
    const auto lead = static_cast<unsigned char>(data[0]), next = static_cast<unsigned char>(data[1]);
    return lead >= 0xC2 && lead <= 0xDF && next >= 0x80 && next <= 0xBF;
}

}  // namespace

void base_Utf8Watch::feed(std::string_view data) {
    while (well_formed_) {
        if (left_ == 0) data.remove_prefix(ccs_ascii_prefix(data));
        if (data.empty()) return;
        const bool pair = left_ == 0 && is_pair(data);
        if (pair)
            met_ = true;
        else
            take(static_cast<unsigned char>(data.front()));
        data.remove_prefix(pair ? 2 : 1);
    }
}

// RFC 3629, section 4.
void base_Utf8Watch::take(unsigned char byte) {
    if (left_ > 0) {
        well_formed_ = byte >= low_ && byte <= high_;
        low_ = 0x80, high_ = 0xBF;
        met_ = met_ || (well_formed_ && left_ == 1);
        --left_;
        return;
    }
    well_formed_ = byte >= 0xC2 && byte <= 0xF4;
    left_ = byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : 1;
    if (byte == 0xE0) low_ = 0xA0;
    if (byte == 0xED) high_ = 0x9F;
    if (byte == 0xF0) low_ = 0x90;
    if (byte == 0xF4) high_ = 0x8F;
}

base_Detector::base_Detector() = default;
base_Detector::~base_Detector() = default;

bool base_Detector::is_plain(std::string_view data) const {
    constexpr char kEscape = '\x1b';
    if (!ccs_Is7BitAscii(data) || data.find(kEscape) != std::string_view::npos) return false;
    return data.find("~{") == std::string_view::npos && !(last_ == '~' && data.front() == '{');
}

// Plain text that went before says nothing but that this is not the beginning (where a byte-order mark may be). Its
// last byte may be the tilde of an HZ escape, which the engine sees only when it stands in one piece with what follows.
void base_Detector::start_engine(std::string_view data) {
    engine_ = std::make_unique<Engine>();
    if (!any_) return engine_->feed(data);
    std::string joined(1, last_);
    engine_->feed(joined += data);
}

void base_Detector::feed(std::string_view data) {
    if (data.empty()) return;
    utf8_.feed(data);
    if (engine_)
        engine_->feed(data);
    else if (!is_plain(data))
        start_engine(data);
    last_ = data.back();
    any_ = true;
}

std::optional<std::string> base_Detector::result() {
    if (!any_) return std::nullopt;
    if (!engine_) return std::string(kAsciiSet);
    if (utf8_.is_utf8()) return std::string(kUtf8Set);
    uchardet_data_end(engine_->handle);
    const std::string_view name = uchardet_get_charset(engine_->handle);
    if (name.empty()) return std::nullopt;
    return std::string(ccs_native_name(name));
}

std::optional<std::string> base_pnDetectAndReport(std::string_view data) {
    base_Utf8Watch utf8;
    utf8.feed(data);
    if (utf8.is_utf8()) return std::string(kUtf8Set);
    base_Detector detector;
    detector.feed(data);
    return detector.result();
}
