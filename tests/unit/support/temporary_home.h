// A fresh home of the mail system for one test: an item store, scratch folders and configuration keys; gone with the
// object.
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "cust/cust.h"
#include "im/im.h"
#include "os/os.h"

class TemporaryHome {
public:
    explicit TemporaryHome(std::string_view keys = {}) {
        path_ = (std::filesystem::temp_directory_path() / "home-XXXXXX").string();
        if (::mkdtemp(path_.data()) == nullptr) std::abort();
        os_SetHome(path_);
        for (const char* folder : {"sys", "tmp", "logs"}) std::filesystem::create_directory(path_ + "/" + folder);
        std::ofstream(path_ + "/sys/config") << std::string(512, '\0');
        im_make_folders();
        set_keys(keys);
    }
    ~TemporaryHome() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
        cust_Reset();
    }
    TemporaryHome(const TemporaryHome&) = delete;
    TemporaryHome& operator=(const TemporaryHome&) = delete;

    const std::string& path() const { return path_; }
    void set_keys(std::string_view toml) {
        std::ofstream(path_ + "/sys/gateway.toml") << toml;
        cust_Reset();
    }
    // How many files the item store holds.
    std::size_t items() const {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path_ + "/data"))
            count += entry.is_regular_file() ? 1 : 0;
        return count;
    }

private:
    std::string path_;
};
