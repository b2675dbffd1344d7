// A home in memory for fuzz targets that write items: laid down once a process, without waiting for disks, gone with
// it.
#pragma once

#include <dirent.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "im/im.h"
#include "os/os.h"
#include "q/q.h"
#include "ux_in/lines.h"

inline void require(bool held) {
    if (!held) std::abort();
}

class FuzzHome {
public:
    explicit FuzzHome(std::string_view keys = {})
        : folder_(std::filesystem::exists("/dev/shm") ? "/dev/shm/fuzz-home-XXXXXX" : "/tmp/fuzz-home-XXXXXX") {
        require(::mkdtemp(folder_.data()) != nullptr);
        os_SetHome(folder_);
        for (const char* folder : {"~/sys", "~/tmp", "~/logs", "~/nls"}) os_mkdirs(folder, 0700);
        std::ofstream(folder_ + "/sys/config") << std::string(512, '\0');
        std::ofstream(folder_ + "/sys/gateway.toml") << "QUEUE_SYNC = false\nAUDIT = false\n" << keys;
        im_make_folders();
        Q_make_folders("ROUTER");
    }
    ~FuzzHome() {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    FuzzHome(const FuzzHome&) = delete;
    FuzzHome& operator=(const FuzzHome&) = delete;

private:
    std::string folder_;
};

// Looks into some five hundred folders, so it is done without allocating anything for each.
inline bool store_is_empty() {
    static const std::vector<std::string> folders = [] {
        std::vector<std::string> all;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(os_HomePath("~/data")))
            all.push_back(entry.path());
        return all;
    }();
    return std::ranges::none_of(folders, [](const std::string& folder) {
        DIR* const open = ::opendir(folder.c_str());
        require(open != nullptr);
        bool file = false;
        while (const dirent* entry = ::readdir(open)) file = file || entry->d_type == DT_REG;
        ::closedir(open);
        return file;
    });
}

// A message text as the process's reader gives it.
class FuzzText {
public:
    explicit FuzzText(std::string_view text) : file_(::memfd_create("text", MFD_CLOEXEC)) {
        os_write_all(file_.get(), text);
        ::lseek(file_.get(), 0, SEEK_SET);
        ux_SetInput(file_.get());
        ux_Input().begin_text();
    }

private:
    os_Fd file_;
};
