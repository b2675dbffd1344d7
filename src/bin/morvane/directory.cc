// `morvane directory`: see directory.h. The formats and the database are the directory service's.
#include "morvane/directory.h"

#include <cerrno>
#include <fstream>
#include <iostream>
#include <optional>

#include <nlohmann/json.hpp>

#include "dr/dr.h"
#include "er/er.h"
#include "ext/ext.h"
#include "morvane/failure.h"
#include "morvane/json_text.h"
#include "morvane/text.h"

namespace morvane {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kGuessBytes = 4096;

void check_name(const std::string& name) {
    if (!dr_good_name(name)) throw Failure("\"" + name + "\" cannot be the name of a directory");
}

std::optional<dr_Format> format_called(const std::string& word) {
    if (word.empty()) return std::nullopt;
    if (word == "ldif") return dr_Format::ldif;
    if (word == "csv") return dr_Format::csv;
    throw Failure("\"" + word + "\" is no format: ldif and csv are");
}

bool ends_with_csv(const std::string& file) {
    return file.size() > 4 && (file.ends_with(".csv") || file.ends_with(".CSV"));
}

// Told by its beginning; what was read for that is put back, so that a pipe will do, too.
dr_Format guess_format(std::istream& in) {
    std::string start(kGuessBytes, '\0');
    in.read(start.data(), static_cast<std::streamsize>(start.size()));
    start.resize(static_cast<std::size_t>(in.gcount()));
    in.clear();
    in.seekg(0);
    if (!in) throw Failure("the format cannot be told from a pipe: --format says it");
    return dr_guess_format(start);
}

class Input {
public:
    explicit Input(const std::string& name) {
        if (name == "-") return;
        file_.open(name, std::ios::binary);
        if (!file_) er_SystemEscape(errno == 0 ? ENOENT : errno, name);
    }
    std::istream& stream() { return file_.is_open() ? file_ : std::cin; }

private:
    std::ifstream file_;
};

}  // namespace

int directory_import(const DirectoryOptions& options, Printer& out, const Screen&) {
    check_name(options.name);
    Input input(options.file);  // as the one who asked: the account that owns the home need not be able to read it
    const std::optional<dr_Format> asked = format_called(options.format);
    const dr_Format format = asked ? *asked : guess_format(input.stream());
    ext_SetUidToMorvane();
    try {
        const dr_ImportResult result = dr_import(options.name, input.stream(), format, options.replace);
        out << counted(result.entries, "entry", "entries") << " in " << options.name;
        if (result.skipped > 0)
            out << ", " << counted(result.skipped, "entry", "entries") << " without a native name skipped";
        out << '\n';
    } catch (const er_Escape& escape) {
        if (escape.group() == kSystemGroup && escape.reason() == EINVAL)
            throw Failure(options.file + ": " + escape.detail());
        throw;
    }
    return 0;
}

int directory_export(const DirectoryOptions& options, Printer&, const Screen&) {
    check_name(options.name);
    const bool to_file = !options.file.empty() && options.file != "-";
    const dr_Format format =
        format_called(options.format).value_or(ends_with_csv(options.file) ? dr_Format::csv : dr_Format::ldif);
    std::ofstream file;
    if (to_file) {
        file.open(options.file, std::ios::binary | std::ios::trunc);
        if (!file) er_SystemEscape(errno, options.file);
    }
    ext_SetUidToMorvane();
    std::ostream& stream = to_file ? file : std::cout;
    dr_export(options.name, stream, format);
    if (!stream.flush()) er_SystemEscape(EIO, to_file ? options.file : "standard output");
    return 0;
}

int directory_lookup(const DirectoryOptions& options, Printer& out, const Screen& screen) {
    check_name(options.name);
    ext_SetUidToMorvane();
    const auto entries = dr_lookup(options.name, options.attribute, options.value);
    Json list = Json::array();
    for (const dr_Entry& entry : entries) {
        if (!options.json) {
            out << screen.paint(Ink::label, harmless(entry.name, screen)) << '\n';
            for (const auto& [attribute, value] : entry.attributes)
                out << "  " << harmless(attribute, screen) << ": " << harmless(value, screen) << '\n';
            continue;
        }
        Json attributes = Json::array();
        for (const auto& [attribute, value] : entry.attributes)
            attributes.push_back({{"attribute", lenient_utf8(attribute)}, {"value", lenient_utf8(value)}});
        list.push_back({{"name", lenient_utf8(entry.name)}, {"attributes", std::move(attributes)}});
    }
    if (options.json) out << json_text(list, 2) << '\n';
    out.flush();
    if (entries.empty())
        throw Failure("no entry of " + options.name + " has \"" + options.value + "\" in " + options.attribute);
    return 0;
}

int directory_list(const DirectoryOptions& options, Printer& out, const Screen& screen) {
    ext_SetUidToMorvane();
    Json list = Json::array();
    for (const dr_Listing& listing : dr_list()) {
        list.push_back({{"directory", lenient_utf8(listing.directory)}, {"entries", listing.entries}});
        if (!options.json)
            out << harmless(listing.directory, screen) << "  " << counted(listing.entries, "entry", "entries") << '\n';
    }
    if (options.json) out << json_text(list, 2) << '\n';
    return 0;
}

}  // namespace morvane
