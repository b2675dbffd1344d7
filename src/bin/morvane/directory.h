// `morvane directory`: the embedded directory that maps Internet addresses to native names.
#pragma once

#include <string>

#include "morvane/printer.h"

namespace morvane {

struct DirectoryOptions {
    std::string name;       // the directory
    std::string file;       // import, export: "-" is standard input or output
    std::string format;     // "ldif", "csv"; empty: after the file
    bool replace = false;   // import: the directory is emptied first
    std::string attribute;  // lookup
    std::string value;
    bool json = false;
};
int directory_import(const DirectoryOptions& options, Printer& out, const Screen& screen);
int directory_export(const DirectoryOptions& options, Printer& out, const Screen& screen);
int directory_lookup(const DirectoryOptions& options, Printer& out, const Screen& screen);  // 1 when nothing is found
int directory_list(const DirectoryOptions& options, Printer& out, const Screen& screen);

}  // namespace morvane
