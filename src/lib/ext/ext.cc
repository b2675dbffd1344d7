// Signals and identity: see ext.h.
#include "ext/ext.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "er/er.h"
#include "os/os.h"

namespace {

// The groups of an owner that has no entry in the password file are its own group alone.
void take_groups(uid_t user, gid_t group) {
    const passwd* entry = ::getpwuid(user);
    const int result = entry != nullptr ? ::initgroups(entry->pw_name, group) : ::setgroups(1, &group);
    if (result != 0) er_SystemEscape(errno, "groups of the home's owner");
}

}  // namespace

void ext_signal(int signal, int action) {
    struct sigaction wanted {};
    wanted.sa_handler = action == 1 ? SIG_IGN : SIG_DFL;
    ::sigaction(signal, &wanted, nullptr);
}

void ext_SetUidToMorvane() {
    struct stat home {};
    if (::stat(os_Home().c_str(), &home) != 0) er_SystemEscape(errno, os_Home());
    if (::geteuid() == home.st_uid && ::getuid() == home.st_uid) return;
    if (::geteuid() == 0) {
        take_groups(home.st_uid, home.st_gid);
        if (::setresgid(home.st_gid, home.st_gid, home.st_gid) != 0)
            er_SystemEscape(errno, "group of the home's owner");
    } else if (::geteuid() != home.st_uid) {
        return;
    }
    if (::setresuid(home.st_uid, home.st_uid, home.st_uid) != 0) er_SystemEscape(errno, "user of the home's owner");
}
