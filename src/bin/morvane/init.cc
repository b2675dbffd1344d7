// Laying down a home: folders, sys/config, the configuration with its one active key, the catalogs. A file is written
// under another name and linked to its own, so that one that is there is kept, and none is ever there by half.
#include "morvane/init.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <vector>

#include "er/er.h"
#include "ext/ext.h"
#include "im/im.h"
#include "morvane/failure.h"
#include "morvane/home.h"
#include "morvane/store.h"
#include "os/os.h"
#include "q/q.h"

namespace morvane {
namespace {

constexpr std::size_t kConfigSize = 512;
constexpr std::size_t kDelimiterAt = 476;
constexpr std::size_t kShareLimit = std::size_t{16} << 20;
constexpr std::string_view kDomainsKey = "INET_LOCAL_DOMAINS";

// A character that names can use: printable ASCII that is neither part of a keyword or number nor of the grammar
// itself.
char delimiter_of(const std::string& text) {
    if (text.empty()) return '/';
    const char c = text.front();
    const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    if (text.size() != 1 || c <= ' ' || c > '~' || letter || c == '=' || c == '\\' || c == '.' || c == '-')
        throw Failure(
            "\"" + text +
            "\" cannot be the name delimiter: one printable ASCII character is, except letters, digits and = \\ . -");
    return c;
}

std::string config_content(char delimiter) {
    std::string content(kConfigSize, '\0');
    const std::uint16_t value = static_cast<unsigned char>(delimiter);  // in machine order
    std::memcpy(content.data() + kDelimiterAt, &value, sizeof value);
    return content;
}

std::string toml_text(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        if (static_cast<unsigned char>(c) >= ' ' && c != 0x7F) out += c;
    }
    return out + '"';
}

// The shipped configuration, in which every key is a comment, with the local domain as its one active key.
std::string configuration(std::string text, const std::string& domain) {
    const std::string line = std::string(kDomainsKey) + " = " + toml_text(domain) + '\n';
    for (const std::string_view mark : {"\n#", "\n# "}) {
        const std::size_t found = text.find(std::string(mark) + std::string(kDomainsKey));
        if (found == std::string::npos) continue;
        const std::size_t end = text.find('\n', found + 1);
        return text.replace(found + 1, end == std::string::npos ? std::string::npos : end - found, line);
    }
    if (!text.empty() && text.back() != '\n') text += '\n';
    return text + line;
}

// Makes what is missing. Files are drafts at first, and get their names together once their content is on the disk.
class Layer {
public:
    Layer() = default;
    Layer(const Layer&) = delete;
    Layer& operator=(const Layer&) = delete;
    ~Layer() {
        for (const std::string& name : drafts_) ::unlink(draft_of(name).c_str());
    }

    void folder(const std::string& path) {
        if (!os_fexists(path)) ++made_;
        os_mkdirs(path, 0700);
    }
    void file(const std::string& path, const std::string& content) {
        if (os_fexists(path)) return kept_.push_back(path);
        const std::string name = os_HomePath(path);
        os_Fd fd = os_open(draft_of(name), O_WRONLY | O_CREAT | O_EXCL, 0600);
        drafts_.push_back(name);
        os_write_all(fd.get(), content);
        fd.close_checked();
    }
    void commit() {
        const os_Fd home = os_open("~/sys", O_RDONLY | O_DIRECTORY);
        if (::syncfs(home.get()) != 0) er_SystemEscape(errno, os_Home());
        for (const std::string& name : drafts_) {
            if (::link(draft_of(name).c_str(), name.c_str()) == 0) {
                ++made_;
            } else if (errno == EEXIST) {  // somebody else was quicker
                kept_.push_back("~" + name.substr(os_Home().size()));
            } else {
                er_SystemEscape(errno, name);
            }
        }
    }
    std::size_t made() const { return made_; }
    const std::vector<std::string>& kept() const { return kept_; }

private:
    static std::string draft_of(const std::string& name) { return name + ".new-" + std::to_string(::getpid()); }

    std::size_t made_ = 0;
    std::vector<std::string> kept_;    // below "~/"
    std::vector<std::string> drafts_;  // the names that they are for
};

// The item store's folders are the item store's to make; here they are only counted.
void lay_store(Layer& layer) {
    constexpr std::string_view digits = "0123456789abcdef";
    for (const char* domain : {"~/data/1/", "~/data/4/"})
        for (unsigned folder = 0; folder < 256; ++folder)
            layer.folder(domain + std::string{digits[folder >> 4], digits[folder & 15]});
    im_make_folders();
    for (const char* folder : {"tmp", "new", "cur"})
        layer.folder("~/queues/" + std::string(kRouterQueue) + '/' + folder);
    Q_make_folders(kRouterQueue);
}

void lay_catalogs(Layer& layer, const std::string& share) {
    if (!os_fexists(share + "/nls/C/unix.cat"))
        throw Failure(share + "/nls/C/unix.cat is missing: is morvane installed completely?");
    std::vector<std::string> languages;
    er_Translate([&] {
        for (const auto& folder : std::filesystem::directory_iterator(share + "/nls"))
            if (folder.is_directory()) languages.push_back(folder.path().filename().string());
    });
    for (const std::string& language : languages) {
        layer.folder("~/nls/" + language);
        layer.file("~/nls/" + language + "/unix.cat",
                   os_read_file(share + "/nls/" + language + "/unix.cat", kShareLimit));
    }
}

void make_home_folder() {
    const std::string parent = std::filesystem::path(os_Home()).parent_path().string();
    if (!parent.empty() && !os_fexists(parent)) os_mkdirs(parent, 0755);
    os_mkdirs(os_Home(), 0700);
}

char delimiter_in_home() {
    const std::string config = os_read_file("~/sys/config", kShareLimit);
    std::uint16_t value = 0;
    if (config.size() < kDelimiterAt + sizeof value) return '/';
    std::memcpy(&value, config.data() + kDelimiterAt, sizeof value);
    return (value & 0xFF) == 0 ? '/' : static_cast<char>(value & 0xFF);
}

}  // namespace

int init(const InitOptions& options, Printer& out, const Screen& screen) {
    const char delimiter = delimiter_of(options.delimiter);
    const std::string share = find_share();
    const std::string gateway_toml = os_read_file(share + "/gateway.toml", kShareLimit);
    const std::string types = os_read_file(share + "/mimetypes.toml", kShareLimit);
    make_home_folder();
    ext_SetUidToMorvane();  // root lays a home down for the account that owns its folder

    Layer layer;
    for (const char* folder : {"~/sys", "~/nls", "~/tmp", "~/logs", "~/data", "~/queues"}) layer.folder(folder);
    lay_store(layer);
    layer.file("~/sys/config", config_content(delimiter));
    layer.file("~/sys/gateway.toml", configuration(gateway_toml, os_canonical_host_name()));
    layer.file("~/sys/mimetypes.toml", types);
    lay_catalogs(layer, share);
    layer.commit();

    if (!options.delimiter.empty() && delimiter_in_home() != delimiter)
        throw Failure(os_HomePath("~/sys/config") + " is kept; its name delimiter is \"" + delimiter_in_home() + '"');
    out << (layer.made() == 0 ? "nothing was missing in " : "laid down ") << os_Home() << '\n';
    for (const std::string& path : layer.kept()) out << screen.paint(Ink::faint, "kept " + path.substr(2)) << '\n';
    return 0;
}

}  // namespace morvane
