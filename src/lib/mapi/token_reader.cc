// The programs' side of the border: see token_reader.h.
#include "mapi/token_reader.h"

#include <cstdint>
#include <cstring>
#include <memory>

#include "mapi/properties_module.h"
#include "os/module.h"

namespace {

constexpr std::string_view kModuleName = "morvane-properties";

struct Module {
    decltype(&morvane_calendar_read) read_calendar = nullptr;
    decltype(&morvane_xml_read) read_xml = nullptr;
    decltype(&morvane_tokens_release) release = nullptr;
    explicit operator bool() const { return read_calendar != nullptr && read_xml != nullptr && release != nullptr; }
};

// Looked for once: a process without it keeps every calendar as it came.
std::optional<Module>& loaded_module() {
    static std::optional<Module> module;
    return module;
}

const Module& properties_module() {
    std::optional<Module>& loaded = loaded_module();
    if (loaded) return *loaded;
    const os_Module module = os_load_module(kModuleName);
    loaded.emplace();
    loaded->read_calendar = module.function<decltype(morvane_calendar_read)>("morvane_calendar_read");
    loaded->read_xml = module.function<decltype(morvane_xml_read)>("morvane_xml_read");
    loaded->release = module.function<decltype(morvane_tokens_release)>("morvane_tokens_release");
    return *loaded;
}

}  // namespace

std::optional<std::string> read_tokens(TokenKind kind, std::string_view text) {
    const Module& module = properties_module();
    if (!module) return std::nullopt;
    char* out = nullptr;
    std::size_t size = 0;
    const auto read = kind == TokenKind::calendar ? module.read_calendar : module.read_xml;
    if (read(text.data(), text.size(), &out, &size) != kTokensMade) return std::nullopt;
    const std::unique_ptr<char, decltype(module.release)> owned(out, module.release);
    return std::string(out, size);
}

bool have_properties_module() { return static_cast<bool>(properties_module()); }

void forget_properties_module() { loaded_module().reset(); }

bool TokenCursor::next(char& kind, std::string_view& text) {
    std::uint32_t length = 0;
    if (bytes_.size() < 1 + sizeof length) return false;
    kind = bytes_.front();
    std::memcpy(&length, bytes_.data() + 1, sizeof length);
    bytes_.remove_prefix(1 + sizeof length);
    if (length > bytes_.size()) return false;
    text = bytes_.substr(0, length);
    bytes_.remove_prefix(length);
    return true;
}
