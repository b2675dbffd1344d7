// Loading the module that reads calendars, and making components of what it answers: see calendar_reader.h.
#include "mapi/calendar_reader.h"

#include <dlfcn.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>

#include <climits>

#include "er/er.h"
#include "mapi/calendar_module.h"

namespace {

constexpr int kSharedWarning = 24071;
constexpr std::string_view kModuleName = "/morvane-calendar.so";

struct Module {
    decltype(&morvane_calendar_read) read = nullptr;
    decltype(&morvane_calendar_release) release = nullptr;
    explicit operator bool() const { return read != nullptr && release != nullptr; }
};

struct ModuleState {
    bool tried = false;
    Module module;
    std::optional<std::string> path;  // instead of the usual ones
};
ModuleState& module_state() {
    static ModuleState state;
    return state;
}

// The folder of this program. The link names the file that was started, however it was called.
std::string program_folder() {
    std::array<char, PATH_MAX> path;
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
    if (length <= 0 || static_cast<std::size_t>(length) >= path.size()) return {};
    const std::string_view program(path.data(), static_cast<std::size_t>(length));
    return std::string(program.substr(0, program.rfind('/')));
}

// Code that somebody else can write is not run.
bool is_safe(const std::string& path) {
    struct stat found;
    if (::stat(path.c_str(), &found) != 0 || !S_ISREG(found.st_mode)) return false;
    return (found.st_uid == 0 || found.st_uid == ::geteuid() || found.st_uid == ::getuid()) &&
           (found.st_mode & S_IWOTH) == 0;
}

// The module stays loaded: a process that met one calendar may meet another.
Module load(const std::string& path) {
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = ::dlerror();
        er_LogMsg(5, kSharedGroup, kSharedWarning, "Calendar module cannot be loaded: ", why == nullptr ? path : why);
        return {};
    }
    Module module;
    module.read = reinterpret_cast<decltype(module.read)>(::dlsym(handle, "morvane_calendar_read"));
    module.release = reinterpret_cast<decltype(module.release)>(::dlsym(handle, "morvane_calendar_release"));
    if (!module) er_LogMsg(5, kSharedGroup, kSharedWarning, "Calendar module is another one: ", path);
    return module;
}

const Module& calendar_module() {
    ModuleState& state = module_state();
    if (std::exchange(state.tried, true)) return state.module;
    for (const std::string& path : state.path ? std::vector{*state.path} : calendar_module_paths()) {
        if (!is_safe(path)) continue;
        state.module = load(path);
        if (state.module) return state.module;
    }
    er_LogMsg(5, kSharedGroup, kSharedWarning, "Calendar module not found: ", "calendars are kept as attachments");
    return state.module;
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

// A process with more rights than who started it takes the installed module only: a link to its program may stand
// anywhere.
std::vector<std::string> calendar_module_paths() {
    std::vector<std::string> paths;
    const std::string folder = ::getauxval(AT_SECURE) == 0 ? program_folder() : std::string();
    if (!folder.empty()) paths.push_back(folder + "/../libexec/morvane" + std::string(kModuleName));
    paths.push_back(MORVANE_LIBEXEC_DIR + std::string(kModuleName));
    return paths;
}

void calendar_set_module_path(std::optional<std::string> path) {
    module_state() = {};
    module_state().path = std::move(path);
}

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
