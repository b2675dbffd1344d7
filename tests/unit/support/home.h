// A minimal home of the mail system for one test: sys/config, empty logs/ and tmp/, the folders of the item store and
// of the queue "ROUTER", a catalog folder. It is the chosen home while the object lives and is gone with it.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "cust/cust.h"
#include "im/im.h"
#include "os/os.h"
#include "q/q.h"

class TestHome {
public:
    // `keys`: the content of sys/gateway.toml; no such file without any. `delimiter`: the name delimiter in sys/config.
    explicit TestHome(std::string_view keys = {}, char delimiter = '/') {
        path_ = root() + "/morvane-home-XXXXXX";
        if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary folder");
        os_SetHome(path_);
        for (const char* folder : {"sys", "tmp", "logs", "nls/C"}) os_mkdirs("~/" + std::string(folder), 0700);
        std::string config(512, '\0');
        config[476] = delimiter;  // a 16-bit value in the machine's order
        write("sys/config", config);
        im_make_folders();
        Q_make_folders("ROUTER");
        set_keys(keys);
    }
    ~TestHome() {
        Q_CloseQueues();
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
        cust_Reset();
    }
    TestHome(const TestHome&) = delete;
    TestHome& operator=(const TestHome&) = delete;

    const std::string& path() const { return path_; }
    // Absolute path of a file of this home: file("sys/config").
    std::string file(std::string_view name) const { return path_ + '/' + std::string(name); }
    bool exists(std::string_view name) const { return std::filesystem::exists(file(name)); }

    void write(std::string_view name, std::string_view content) const {
        std::ofstream out(file(name), std::ios::binary);
        out << content;
        if (!out.flush()) throw std::runtime_error("cannot write " + file(name));
    }
    std::string read(std::string_view name) const { return read_path(file(name)); }
    static std::string read_path(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        if (!in) throw std::runtime_error("cannot read " + path);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

    // Replaces sys/gateway.toml and forgets what was read of it.
    void set_keys(std::string_view toml) const {
        if (toml.empty())
            std::filesystem::remove(file("sys/gateway.toml"));
        else
            write("sys/gateway.toml", toml);
        cust_Reset();
    }

    // The files below a folder of this home, as paths, in order: files("data"), files("queues/ROUTER/new").
    std::vector<std::string> files(std::string_view folder) const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(file(folder)))
            if (entry.is_regular_file()) found.push_back(entry.path().string());
        std::sort(found.begin(), found.end());
        return found;
    }

private:
    // A home has some five hundred folders: where there is a file system in memory, it is laid there.
    static std::string root() {
        const char* const chosen = std::getenv("TMPDIR");
        if (chosen == nullptr && ::access("/dev/shm", W_OK | X_OK) == 0) return "/dev/shm";
        return std::filesystem::temp_directory_path().string();
    }

    std::string path_;
};
