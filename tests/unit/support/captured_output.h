// Standard output (or error) of this process, caught in a file while the object lives.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "os/os.h"

class CapturedOutput {
public:
    explicit CapturedOutput(int fd = STDOUT_FILENO) : fd_(fd), file_(::memfd_create("output", MFD_CLOEXEC)) {
        std::fflush(nullptr);
        saved_ = os_Fd(::dup(fd_));
        if (!file_ || ::dup2(file_.get(), fd_) < 0) std::abort();
    }
    ~CapturedOutput() {
        std::fflush(nullptr);
        if (saved_) ::dup2(saved_.get(), fd_);
    }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    // Everything that was written so far.
    std::string text() const {
        std::fflush(nullptr);
        std::string content(os_fsize(file_.get()), '\0');
        os_pread(file_.get(), content.data(), content.size(), 0);
        return content;
    }

private:
    int fd_;
    os_Fd file_, saved_;
};
