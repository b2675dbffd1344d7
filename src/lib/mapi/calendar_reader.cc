// Loading the module that reads calendars, and making components of what it answers: see calendar_reader.h.
#include "mapi/calendar_reader.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>

#include <climits>

#include "mapi/calendar_module.h"
#include "os/module.h"

namespace {

constexpr std::string_view kModuleName = "morvane-calendar";

struct Module {
    decltype(&morvane_calendar_read) read = nullptr;
    decltype(&morvane_calendar_release) release = nullptr;
    explicit operator bool() const { return read != nullptr && release != nullptr; }
};

// Looked for once: a process without it keeps every calendar as it came.
std::optional<Module>& loaded_module() {
    static std::optional<Module> module;
    return module;
}

const Module& calendar_module() {
    std::optional<Module>& loaded = loaded_module();
    if (loaded) return *loaded;
    const os_Module module = os_load_module(kModuleName);
    loaded.emplace();
    loaded->read = module.function<decltype(morvane_calendar_read)>("morvane_calendar_read");
    loaded->release = module.function<decltype(morvane_calendar_release)>("morvane_calendar_release");
    return *loaded;
}

// The tokens of the module, one after the other. What does not fit together ends them.
class TokenCursor {
public:
    explicit TokenCursor(std::string_view bytes) : bytes_(bytes) {}
    bool next(char& kind, std::string_view& text) {
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

private:
    std::string_view bytes_;
};

std::vector<CalendarComponent> components_of(std::string_view bytes) {
    std::vector<CalendarComponent> done, open;
    TokenCursor tokens(bytes);
    char kind;
    std::string_view text;
    const auto property = [&]() -> CalendarProperty* {
        return open.empty() || open.back().properties.empty() ? nullptr : &open.back().properties.back();
    };
    while (tokens.next(kind, text)) {
        if (kind == 'B') open.emplace_back().name = text;
        if (open.empty()) continue;
        if (kind == 'P') open.back().properties.emplace_back().name = text;
        if (kind == 'N' && property() != nullptr) property()->parameters.emplace_back(text, std::string());
        if (kind == 'V' && property() != nullptr && !property()->parameters.empty())
            property()->parameters.back().second = text;
        if (kind == 'T' && property() != nullptr) property()->value = text;
        if (kind != 'E') continue;
        CalendarComponent whole = std::move(open.back());
        open.pop_back();
        (open.empty() ? done : open.back().components).push_back(std::move(whole));
    }
    return done;
}

}  // namespace

std::string_view CalendarProperty::parameter(std::string_view wanted) const {
    for (const auto& [parameter, text] : parameters)
        if (parameter == wanted) return text;
    return {};
}

const CalendarProperty* CalendarComponent::first(std::string_view wanted) const {
    const auto found = std::find_if(properties.begin(), properties.end(),
                                    [wanted](const CalendarProperty& property) { return property.name == wanted; });
    return found == properties.end() ? nullptr : &*found;
}

std::string_view CalendarComponent::value(std::string_view wanted) const {
    const CalendarProperty* property = first(wanted);
    return property == nullptr ? std::string_view() : std::string_view(property->value);
}

void calendar_forget_module() { loaded_module().reset(); }

std::vector<CalendarComponent> read_calendar(std::string_view text) {
    const std::string lines = calendar_lines(text);
    if (lines.empty()) return {};
    const Module& module = calendar_module();
    if (!module) return {};
    char* out = nullptr;
    std::size_t size = 0;
    if (module.read(lines.data(), lines.size(), &out, &size) != kCalendarRead) return {};
    const std::unique_ptr<char, decltype(module.release)> owned(out, module.release);
    return components_of({out, size});
}
