// Message text for one test, as the process's reader (ux_Input) gives it: a real file on a descriptor of its own. A
// text is given with its end line, or without where the input is to end.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "os/os.h"
#include "ux_in/lines.h"

class MessageText {
public:
    explicit MessageText(std::string_view text) : fd_(::memfd_create("text", MFD_CLOEXEC)) {
        if (!fd_) std::abort();
        os_write_all(fd_.get(), text);
        ::lseek(fd_.get(), 0, SEEK_SET);
        ux_SetInput(fd_.get());
        ux_Input().begin_text();
    }

private:
    os_Fd fd_;
};
