// Message catalogs: see catalog.h.
#include "os/catalog.h"

#include <nl_types.h>

#include <array>
#include <cstdlib>

#include "os/os.h"

namespace {

// An open catalog. catgets(3) hands out views into its mapping, so it stays open as long as texts are used.
struct Catalog {
    nl_catd handle = reinterpret_cast<nl_catd>(-1);  // as catopen(3) reports a failure
    int set = 0;

    bool is_open() const { return handle != reinterpret_cast<nl_catd>(-1); }
    void open(const std::string& path) {
        close();
        handle = ::catopen(path.c_str(), 0);  // a name with a slash is a path: NLSPATH is not consulted
    }
    void close() {
        if (is_open()) ::catclose(handle);
        handle = reinterpret_cast<nl_catd>(-1);
    }
    ~Catalog() { close(); }
};

Catalog& catalog() {
    static Catalog the_catalog;
    return the_catalog;
}

// LANG is foreign text: nothing but a plain name may become a folder's name.
bool is_plain_name(std::string_view name) {
    return !name.empty() && name.find('/') == std::string_view::npos && !name.starts_with('.');
}

bool has_catalog(std::string_view folder) {
    return is_plain_name(folder) && os_fexists("~/nls/" + std::string(folder) + "/unix.cat");
}

}  // namespace

std::string ext_langtodir(std::string_view lang) {
    const std::string_view without_codeset = lang.substr(0, lang.find_first_of(".@"));
    const std::string_view language = without_codeset.substr(0, without_codeset.find('_'));
    for (const std::string_view folder : std::array{lang, without_codeset, language})
        if (has_catalog(folder)) return std::string(folder);
    return "C";
}

void os_MCOpen(int set) {
    const char* lang = std::getenv("LANG");
    catalog().open(os_HomePath("~/nls/" + ext_langtodir(lang == nullptr ? "" : lang) + "/unix.cat"));
    catalog().set = set;
}

void os_MCClose() { catalog().close(); }

std::string_view os_MCGetMessage(int set, int number) {
    if (!catalog().is_open()) return {};
    return ::catgets(catalog().handle, set, number, "");
}

std::string_view os_MCGetMessage(int number) { return os_MCGetMessage(catalog().set, number); }
