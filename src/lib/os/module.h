// Modules of ours: code that is heavy and rarely wanted stays out of the programs, so that a start costs nothing for
// it, and is loaded from a shared object with a C interface the first time it is. Nothing throws across that border.
//
// A module lies in "libexec/morvane" beside the folder of the program, or where it was installed; a process with more
// rights than who started it takes the installed one only, because a link to its program may stand anywhere. One that
// others may write is not loaded.
#pragma once

#include <optional>
#include <string>
#include <string_view>

class os_Module {
public:
    os_Module() = default;
    explicit operator bool() const { return handle_ != nullptr; }
    // The function of this name as the type of `like`; null when the module does not have it.
    template <class Function>
    Function* function(const char* name) const {
        return reinterpret_cast<Function*>(symbol(name));
    }

private:
    friend os_Module os_load_module(std::string_view name);
    explicit os_Module(void* handle) : handle_(handle) {}
    void* symbol(const char* name) const;
    void* handle_ = nullptr;
};

// Loads "NAME.so"; it stays loaded for the life of the process. A module that is not there, or cannot be loaded, is
// logged at level 3 and is empty; whoever asks again tries again.
os_Module os_load_module(std::string_view name);

// Looks in this folder alone; for tests.
void os_set_module_folder(std::optional<std::string> folder);
