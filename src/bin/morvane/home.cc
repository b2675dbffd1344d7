// The home and the installation: see home.h.
#include "morvane/home.h"

#include <array>
#include <filesystem>

#include "er/er.h"
#include "gcl/gcl.h"
#include "morvane/failure.h"
#include "os/os.h"

#ifndef MORVANE_SHARE_DIR
    #define MORVANE_SHARE_DIR "/usr/share/morvane"
#endif
#ifndef MORVANE_SBIN_DIR
    #define MORVANE_SBIN_DIR "/usr/sbin"
#endif

namespace morvane {
namespace {

std::filesystem::path program_folder() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path("/nowhere") : program.parent_path();
}

}  // namespace

void choose_home(const HomeChoice& choice) {
    if (!choice.home.empty()) {
        os_SetHome(std::filesystem::absolute(choice.home).lexically_normal().string());
    } else if (choice.system.empty()) {
        gcl_setDefaultSystem();
    } else if (!gcl_setSystemByName(choice.system)) {
        ext_ReportWhichQnSystem();
        throw Failure("there is no mail system called \"" + choice.system + '"');
    }
}

void require_home() {
    if (!os_fexists("~/sys/config"))
        throw Failure(os_Home() + " is not a home: there is no sys/config in it; morvane init lays one down");
}

std::string find_share() {
    const std::filesystem::path folder = program_folder();
    const std::array candidates = {folder / "../share/morvane", folder / "../share",
                                   std::filesystem::path(MORVANE_SHARE_DIR)};
    for (const auto& candidate : candidates)
        if (os_fexists((candidate / "gateway.toml").string())) return candidate.lexically_normal().string();
    throw Failure("gateway.toml is neither in " + candidates[0].lexically_normal().string() + " nor in " +
                  MORVANE_SHARE_DIR + ": is morvane installed completely?");
}

std::string find_gateway() {
    const std::filesystem::path folder = program_folder();
    const std::array candidates = {folder / "unix.in", folder / "../sbin/unix.in",
                                   std::filesystem::path(MORVANE_SBIN_DIR) / "unix.in"};
    for (const auto& candidate : candidates)
        if (os_fexists(candidate.string())) return candidate.lexically_normal().string();
    throw Failure("unix.in is neither beside this program nor in " MORVANE_SBIN_DIR);
}

}  // namespace morvane
