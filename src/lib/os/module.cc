// Modules: see module.h.
#include "os/module.h"

#include <dlfcn.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <vector>

#include <climits>

#include "er/er.h"

namespace {

constexpr int kSharedWarning = 24071;

std::optional<std::string>& only_folder() {
    static std::optional<std::string> folder;
    return folder;
}

// The link names the file that was started, however it was called.
std::string program_folder() {
    std::array<char, PATH_MAX> path;
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
    if (length <= 0 || static_cast<std::size_t>(length) >= path.size()) return {};
    const std::string_view program(path.data(), static_cast<std::size_t>(length));
    return std::string(program.substr(0, program.rfind('/')));
}

std::vector<std::string> folders() {
    if (only_folder()) return {*only_folder()};
    std::vector<std::string> found;
    if (::getauxval(AT_SECURE) == 0) {
        const std::string program = program_folder();
        if (!program.empty()) found.push_back(program + "/../libexec/morvane");
    }
    found.emplace_back(MORVANE_MODULE_DIR);
    return found;
}

// Code that somebody else can write is not run.
bool is_safe(const std::string& path) {
    struct stat found;
    if (::stat(path.c_str(), &found) != 0 || !S_ISREG(found.st_mode)) return false;
    const bool is_ours = found.st_uid == 0 || found.st_uid == ::geteuid() || found.st_uid == ::getuid();
    return is_ours && (found.st_mode & S_IWOTH) == 0;
}

}  // namespace

void* os_Module::symbol(const char* name) const { return handle_ == nullptr ? nullptr : ::dlsym(handle_, name); }

os_Module os_load_module(std::string_view name) {
    std::string why = "it is not there, or others may write it";
    for (const std::string& folder : folders()) {
        const std::string path = (folder + '/').append(name) + ".so";
        if (!is_safe(path)) continue;
        if (void* const handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) return os_Module(handle);
        const char* const error = ::dlerror();
        why = error == nullptr ? path : error;
    }
    er_LogMsg(3, kSharedGroup, kSharedWarning, "Module cannot be loaded: ", name, ": ", why);
    return {};
}

void os_set_module_folder(std::optional<std::string> folder) { only_folder() = std::move(folder); }
