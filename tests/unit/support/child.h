// Runs `work` in a forked process and gives its result: for limits, signals and processes that die in the middle.
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <stdexcept>

// The exit status, or 128 and the number of the signal that ended the process. What `work` throws is status 99.
inline int await_child(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR) throw std::runtime_error("waitpid");
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

inline pid_t start_child(const std::function<int()>& work) {
    const pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("fork");
    if (child != 0) return child;
    int status = 99;
    try {
        status = work();
    } catch (...) {}
    ::_exit(status);
}

inline int run_in_child(const std::function<int()>& work) { return await_child(start_child(work)); }

// From now on no file of this process grows beyond `bytes`: EFBIG, like a disk that is full.
inline void limit_file_size(rlim_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, bytes};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) throw std::runtime_error("setrlimit");
}
