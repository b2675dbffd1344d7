// Instances of the mail system: see gcl.h.
#include "gcl/gcl.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>

#include "er/er.h"
#include "os/os.h"
#include "os/toml.h"

namespace {

constexpr std::string_view kSystemsFile = "/etc/morvane/systems.toml";
constexpr std::string_view kDefaultHome = "/var/lib/morvane";
constexpr std::size_t kFileLimit = 1 << 20;

struct Systems {
    bool exists = false;
    std::string default_name;                               // empty: none
    std::map<std::string, std::string, std::less<>> homes;  // by instance
};

std::string environment(const char* name) {
    const char* value = ::secure_getenv(name);
    return value == nullptr ? std::string{} : value;
}

std::string systems_file() {
    std::string path = environment("MORVANE_SYSTEMS");
    return path.empty() ? std::string(kSystemsFile) : path;
}

[[noreturn]] void refuse(std::uint32_t line, const std::string& what) {
    er_SystemEscape(EINVAL, systems_file() + ":" + std::to_string(line) + ": " + what);
}

std::string text_of(const std::string& key, const toml::node& node) {
    if (const auto* text = node.as_string(); text != nullptr && !text->get().empty()) return text->get();
    refuse(node.source().begin.line, "key " + key + ": a text is wanted");
}

const toml::table& table_of(const std::string& key, const toml::node& node) {
    if (const toml::table* table = node.as_table()) return *table;
    refuse(node.source().begin.line, "key " + key + ": a table is wanted");
}

std::string home_of(const std::string& name, const toml::node& node) {
    const std::string key = "system." + name;
    const toml::node* home = table_of(key, node).get("home");
    if (home == nullptr) refuse(node.source().begin.line, "key " + key + ": it has no home");
    std::string path = text_of(key + ".home", *home);
    if (!path.starts_with('/')) refuse(home->source().begin.line, "key " + key + ".home: an absolute path is wanted");
    return path;
}

void take_systems(Systems& systems, const toml::table& root) {
    if (const toml::node* all = root.get("system"))
        for (const auto& [name, node] : table_of("system", *all))
            systems.homes.emplace(name.str(), home_of(std::string(name.str()), node));
    const toml::node* chosen = root.get("default");
    if (chosen == nullptr) return;
    systems.default_name = text_of("default", *chosen);
    if (!systems.homes.contains(systems.default_name))
        refuse(chosen->source().begin.line, "key default: there is no [system." + systems.default_name + "]");
}

Systems read_systems() {
    Systems systems;
    const std::string path = systems_file();
    if (os_Fd fd = os_open_if_there(path, O_RDONLY); !fd) return systems;
    systems.exists = true;
    const std::string content = os_read_file(path, kFileLimit);
    try {
        take_systems(systems, toml::parse(content));
    } catch (const toml::parse_error& error) {
        refuse(error.source().begin.line, std::string(error.description()));
    }
    return systems;
}

}  // namespace

bool gcl_setSystemByName(std::string_view name) {
    const Systems systems = read_systems();
    const auto found = systems.homes.find(name);
    if (found == systems.homes.end()) return false;
    os_SetHome(found->second);
    return true;
}

void gcl_setDefaultSystem() {
    std::string home = environment("MORVANE_HOME");
    if (home.empty()) {
        const Systems systems = read_systems();
        home = systems.default_name.empty() ? std::string(kDefaultHome) : systems.homes.at(systems.default_name);
    }
    os_SetHome(std::move(home));
}

void ext_ReportWhichQnSystem() {
    const Systems systems = read_systems();
    std::string report;
    if (!systems.exists) report = systems_file() + " does not exist: there are no named mail systems\n";
    if (systems.exists && systems.homes.empty()) report = systems_file() + " names no mail system\n";
    if (!systems.homes.empty()) report = "mail systems in " + systems_file() + ":\n";
    for (const auto& [name, home] : systems.homes)
        report += "  " + name + "  " + home + (name == systems.default_name ? "  (default)\n" : "\n");
    er_TryIgnoring([&] { os_write_all(STDERR_FILENO, report); });
}
