// Checking a home: see fsck.h.
#include "morvane/fsck.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "cust/cust.h"
#include "er/er.h"
#include "im/im.h"
#include "morvane/failure.h"
#include "morvane/layout.h"
#include "morvane/record_file.h"
#include "morvane/store.h"
#include "tf/record.h"

namespace morvane {
namespace {

constexpr std::int64_t kDistributionList = 1166;
constexpr std::size_t kNamed = 20;            // reclaimable files that are named without --verbose
constexpr std::uint64_t kConfigNeeded = 478;  // bytes of sys/config up to the end of the delimiter
constexpr std::time_t kStale = 24 * 60 * 60;  // seconds after which a nameless scratch file is nobody's work

// One file of the store, small: there may be millions.
struct StoreFile {
    std::uint64_t id = 0;
    std::uint32_t extension = 0;
    std::uint16_t domain = 0;
    std::uint8_t claims = 0;  // messages that lead to it, for a message file: entries; 2 is any more
    bool in_hand = false;     // of a process that was at work before the queues were read

    bool operator<(const StoreFile& other) const {
        if (id != other.id) return id < other.id;
        return domain != other.domain ? domain < other.domain : extension < other.extension;
    }
};
static_assert(sizeof(StoreFile) == 16);

std::uint32_t packed(const std::array<char, 4>& extension) {
    std::uint32_t value = 0;
    std::memcpy(&value, extension.data(), sizeof value);
    return value;
}

StoreFile key_of(const ITEM_REF& ref) { return {ref.file_id, packed(ref.extension), ref.domain, 0, false}; }

ITEM_REF ref_of(const StoreFile& file) {
    ITEM_REF ref;
    ref.domain = file.domain;
    ref.file_id = file.id;
    std::memcpy(ref.extension.data(), &file.extension, sizeof file.extension);
    return ref;
}

// The names in a folder, "." and ".." left out; a folder that is not there has none.
void for_each_name(const std::string& folder, const std::function<void(const char* name, bool is_folder)>& visit) {
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(folder.c_str()), ::closedir);
    if (!listing && errno != ENOENT) er_SystemEscape(errno, folder);
    if (!listing) return;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(listing.get());
        if (entry == nullptr && errno != 0) er_SystemEscape(errno, folder);
        if (entry == nullptr) return;
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") continue;
        bool is_folder = entry->d_type == DT_DIR;
        if (struct stat info{};
            entry->d_type == DT_UNKNOWN && ::stat((folder + '/' + entry->d_name).c_str(), &info) == 0)
            is_folder = S_ISDIR(info.st_mode);
        visit(entry->d_name, is_folder);
    }
}

std::optional<std::uint32_t> number_of(std::string_view text, std::uint32_t most) {
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || text.empty() || value > most) return std::nullopt;
    return value;
}

// A gateway of this process id is at work. An id alone says little: ids come again.
bool is_gateway(std::uint32_t process) {
    const os_Fd file = os_open_if_there("/proc/" + std::to_string(process) + "/comm", O_RDONLY);
    std::array<char, 64> name{};
    if (!file) return false;
    const ssize_t got = ::read(file.get(), name.data(), name.size());  // a failure: it ended just now
    return got > 0 && std::string_view(name.data(), static_cast<std::size_t>(got)) == "unix.in\n";
}

// The process in "<anything>-<process>-<number>" with or without an extension, as queue entries and scratch files have
// it.
std::optional<std::uint32_t> process_in_name(std::string_view name) {
    name = name.substr(0, name.rfind('.') == std::string_view::npos || name.rfind('.') < name.rfind('-')
                              ? name.size()
                              : name.rfind('.'));
    const std::size_t last = name.rfind('-');
    if (last == std::string_view::npos || last == 0) return std::nullopt;
    const std::size_t before = name.rfind('-', last - 1);
    if (before == std::string_view::npos || !number_of(name.substr(last + 1), UINT32_MAX)) return std::nullopt;
    return number_of(name.substr(before + 1, last - before - 1), UINT32_MAX);
}

// Saved TNEF streams stay until an administrator has looked at them.
bool is_saved_tnef(std::string_view name) { return name.starts_with("unix.in-") && name.ends_with(".TNEF"); }

class Check {
public:
    Check(const FsckOptions& options, Printer& out, const Screen& screen)
        : options_(options), out_(out), screen_(screen) {}
    FsckResult run();

private:
    // One content-file record, as far as its file must match it.
    struct Content {
        std::int32_t type;
        std::int32_t size;
    };

    void tell(Ink ink, std::string_view what, const std::string& text) {
        out_ << screen_.paint(ink, what) << "  " << harmless(text, screen_) << '\n';
    }
    void damage(const std::string& text) {
        ++result_.damage;
        tell(Ink::damage, "damage     ", text);
    }
    void short_path(std::string& path) const {
        if (path.starts_with(os_Home() + '/')) path.erase(0, os_Home().size() + 1);
    }
    std::string below_home(std::string path) const {
        short_path(path);
        return path;
    }

    void check_layout();
    void check_configuration();
    void list_store();
    void list_folder(std::uint16_t domain, unsigned folder, const std::string& path);
    void ask_who_is_at_work();

    void check_queues();
    void check_queue(const std::string& queue);
    bool check_entry(const std::string& queue, const EntryName& entry);
    bool read_and_check(const std::string& path, Words& found);
    void check_message(const QueuedMessage& queued, Words& found);
    void check_attachments(const MessageFile& message, const std::vector<Content>& contents, Words& found);
    bool claim(const ITEM_REF& ref, const std::string& owner, Words& found);
    std::vector<Content> check_records(const std::string& path, Words& found);

    void check_drafts(const std::string& queue);
    void check_scratch();
    void sort_out_orphans();
    void reclaim(const std::string& path);
    void summarise();

    const FsckOptions& options_;
    Printer& out_;
    const Screen& screen_;
    FsckResult result_;
    std::vector<StoreFile> store_;  // in order, once listed
    bool blind_ = false;            // what an entry or a message leads to could not be read
};

void Check::check_layout() {
    std::vector<std::string> folders = {"sys", "nls/C", "tmp", "logs"};
    for (const char* part : {"tmp", "new", "cur"})
        folders.push_back("queues/" + std::string(kRouterQueue) + '/' + part);
    constexpr std::string_view digits = "0123456789abcdef";
    for (const char* domain : {"data/1/", "data/4/"})
        for (unsigned folder = 0; folder < 256; ++folder)
            folders.push_back(domain + std::string{digits[folder >> 4], digits[folder & 15]});
    for (const std::string& folder : folders)
        if (!os_fexists("~/" + folder)) damage(folder + ": the folder is missing; morvane init makes it");
    for (const char* file : {"sys/gateway.toml", "sys/mimetypes.toml", "nls/C/unix.cat"})
        if (!os_fexists("~/" + std::string(file))) damage(std::string(file) + " is missing; morvane init lays it down");
}

void Check::check_configuration() {
    if (ByteFile::open("~/sys/config").size() < kConfigNeeded)
        damage("sys/config: too short, the name delimiter is not in it");
    cust_Reset();
    try {
        cust_GetBoolean("QUEUE_SYNC", true);
    } catch (const er_Escape& escape) {
        damage(below_home(escape.detail()));
    }
}

void Check::list_folder(std::uint16_t domain, unsigned folder, const std::string& path) {
    for_each_name(path, [&](const char* name, bool is_folder) {
        const std::optional<ITEM_REF> ref = is_folder ? std::nullopt : im_FName2ItemRef(name);
        if (!ref) {
            ++result_.foreign;
            return tell(Ink::warning, "foreign    ", below_home(path) + '/' + name);
        }
        StoreFile file = key_of(*ref);
        file.domain = domain;
        if ((file.id & 0xFF) != folder) return damage(below_home(path) + '/' + name + ": in the wrong folder");
        store_.push_back(file);
    });
}

void Check::list_store() {
    for_each_name(os_HomePath("~/data"), [&](const char* domain_name, bool is_domain) {
        const auto domain = number_of(domain_name, UINT16_MAX);
        if (!is_domain || !domain) return;
        const std::string root = os_HomePath("~/data/") + domain_name;
        for_each_name(root, [&](const char* folder_name, bool is_folder) {
            unsigned folder = 0;
            const char* end = folder_name + std::strlen(folder_name);
            const auto parsed = std::from_chars(folder_name, end, folder, 16);
            if (!is_folder || parsed.ec != std::errc{} || parsed.ptr != end || end - folder_name != 2) return;
            list_folder(static_cast<std::uint16_t>(*domain), folder, root + '/' + folder_name);
        });
    });
    std::sort(store_.begin(), store_.end());
}

// Before the queues are read: see fsck.h. Ids are in order and those of a process stand together, so it is asked for
// once for each 4096 of them.
void Check::ask_who_is_at_work() {
    std::uint64_t block = 0;
    bool at_work = false;
    for (StoreFile& file : store_) {
        if (block != file.id >> 12 || &file == store_.data()) {
            block = file.id >> 12;
            at_work = im_maker_lives(file.id);
        }
        file.in_hand = at_work;
    }
}

// Every record of a file parses; what its content-file records say. Failures go to `found`.
std::vector<Check::Content> Check::check_records(const std::string& path, Words& found) {
    std::vector<Content> contents;
    ByteFile file = ByteFile::open(path);
    const RecordOutline shape = outline(file);
    for (const std::string& fault : shape.faults) found.push_back(below_home(path) + ": " + fault);
    if (!shape.failure.empty()) found.push_back(below_home(shape.failure));
    if (shape.steps.empty() && shape.failure.empty()) found.push_back(below_home(path) + ": no records");
    RecordWalker walker(file);
    for (const RecordStep& step : shape.steps) {
        const RecordRow* row = find_record(step.type);
        RecordPlace place;
        walker.go_to(step.position);
        if (row == nullptr || !walker.next(place)) continue;
        const FieldList fields = read_fields(*row, walker.head(place), place.length);
        const std::string where = below_home(path) + ": offset " + std::to_string(place.position) + ": ";
        if (fields.missing != nullptr)
            found.push_back(where + "the record ends before its field " + std::string(fields.missing->key));
        if (const FieldValue* object = fields.find("content"); object != nullptr && object->cut)
            found.push_back(where + "the object's length is wrong");
        if (step.type == TFREC_content_file_type)
            contents.push_back({static_cast<std::int32_t>(fields.number("contentType")),
                                static_cast<std::int32_t>(fields.number("fileSize"))});
    }
    return contents;
}

// Counts one claim to a file. False: the file is missing.
bool Check::claim(const ITEM_REF& ref, const std::string& owner, Words& found) {
    const std::string path = im_ItemRef2FName(ref);
    ++result_.files;
    if (ref.flags != 0 || ref.sub_domain != 0)
        found.push_back(owner + ": the reference to " + item_name(ref) + " has flags");
    const StoreFile key = key_of(ref);
    const auto file = std::lower_bound(store_.begin(), store_.end(), key);
    if (file != store_.end() && !(key < *file)) {
        if (file->claims == 1) found.push_back(owner + ": " + item_name(ref) + " belongs to more than one message");
        file->claims = file->claims == 0 ? 1 : 2;
        return true;
    }
    if (os_fexists(path)) return true;  // made since the store was listed
    found.push_back(owner + ": " + below_home(path) + " is missing");
    return false;
}

void Check::check_attachments(const MessageFile& message, const std::vector<Content>& contents, Words& found) {
    const std::string owner = below_home(message.path);
    if (contents.size() != message.files.size() - 1)
        found.push_back(owner + ": " + counted(message.files.size() - 1, "attached file", "attached files") + ", but " +
                        counted(contents.size(), "content record", "content records"));
    for (std::size_t number = 1; number < message.files.size(); ++number) {
        const ITEM_REF& ref = message.files[number];
        if (!claim(ref, owner, found) || number > contents.size()) continue;
        const Content& content = contents[number - 1];
        const std::string path = im_ItemRef2FName(ref);
        const bool list = content.type == kDistributionList;
        if (list) check_records(path, found);
        const std::uint64_t size = list ? 0 : ByteFile::open(path).size();
        if (static_cast<std::uint32_t>(content.size) != (size & 0xFFFFFFFF))
            found.push_back(owner + ": content record " + std::to_string(number) + " says " +
                            with_commas(static_cast<std::uint32_t>(content.size)) + " bytes, " + item_name(ref) +
                            " has " + with_commas(size));
    }
}

void Check::check_message(const QueuedMessage& queued, Words& found) {
    ++result_.messages;
    const bool was_blind = blind_;
    const std::string path = im_ItemRef2FName(queued.message);
    blind_ = true;  // until the message file has been read
    if (!claim(queued.message, "the entry", found)) return;
    const MessageFile message = read_message(path);
    blind_ = was_blind;
    if (message.version != 1) found.push_back(below_home(path) + ": format version " + std::to_string(message.version));
    if (claim(message.files.front(), below_home(path), found)) {
        check_attachments(message, check_records(im_ItemRef2FName(message.files.front()), found), found);
    } else {
        for (std::size_t number = 1; number < message.files.size(); ++number)
            claim(message.files[number], below_home(path), found);
    }
}

// What is wrong with an entry that was there goes to `found`. False: it has gone, taken or done by a consumer.
bool Check::read_and_check(const std::string& path, Words& found) {
    const bool was_blind = std::exchange(blind_, true);  // until it is known what it leads to
    try {
        const std::vector<QueuedMessage> messages = read_entry(path);
        blind_ = was_blind;
        for (const QueuedMessage& queued : messages) check_message(queued, found);
    } catch (const Failure& failure) {
        found.push_back(below_home(failure.what()));
    } catch (const er_Escape& escape) {
        if (escape.group() != kSystemGroup) throw;
        found.push_back(below_home(told(escape)));
    }
    if (found.empty() || os_fexists(path)) return true;
    blind_ = was_blind;  // faults of an entry that goes while we look are none: its files go after it
    return false;
}

bool Check::check_entry(const std::string& queue, const EntryName& entry) {
    const std::string path = entry_path(queue, entry);
    Words found;
    if (!read_and_check(path, found)) return false;
    ++result_.entries;
    for (const std::string& text : found) damage(below_home(path) + ": " + text);
    return true;
}

// new/ before cur/: an entry that is taken meanwhile is seen in one of them, and checked once.
void Check::check_queue(const std::string& queue) {
    std::unordered_set<std::size_t> checked;  // hashes of names
    for (const bool taken : {false, true}) {
        std::vector<std::string> names;
        for_each_name(entry_path(queue, {"", taken}), [&](const char* name, bool) { names.emplace_back(name); });
        for (const std::string& name : names) {
            const std::size_t hash = std::hash<std::string>{}(name);
            if (!checked.contains(hash) && check_entry(queue, {name, taken})) checked.insert(hash);
        }
    }
    check_drafts(queue);
}

void Check::check_queues() {
    for_each_name(os_HomePath("~/queues"), [&](const char* queue, bool is_folder) {
        if (is_folder) check_queue(queue);
    });
}

// Entries that are being written, or were when their gateway died: one lives as long as who makes its messages.
void Check::check_drafts(const std::string& queue) {
    const std::string folder = os_HomePath("~/queues/") + queue + "/tmp";
    for_each_name(folder, [&](const char* name, bool is_folder) {
        const std::string path = folder + '/' + name;
        if (is_folder) return;
        const std::optional<std::uint32_t> process = process_in_name(name);
        bool at_work = process && is_gateway(*process);
        try {
            for (const QueuedMessage& queued : read_entry(path))
                at_work = at_work || im_maker_lives(queued.message.file_id);
        } catch (const Failure&) {  // not written to its end
        } catch (const er_Escape& escape) {
            if (escape.group() != kSystemGroup || escape.reason() != ENOENT) throw;
        }
        if (at_work) {
            ++result_.living;
        } else {
            reclaim(path);
        }
    });
}

void Check::check_scratch() {
    const std::string folder = os_HomePath("~/tmp");
    for_each_name(folder, [&](const char* name, bool is_folder) {
        const std::string path = folder + '/' + name;
        struct stat info {};
        if (is_folder || is_saved_tnef(name) || ::lstat(path.c_str(), &info) != 0) return;
        const std::optional<std::uint32_t> process = process_in_name(name);
        const bool fresh = info.st_mtime + kStale > std::time(nullptr);
        if (process ? is_gateway(*process) : fresh) {
            ++result_.living;
        } else {
            reclaim(path);
        }
    });
}

void Check::reclaim(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return;  // its consumer has deleted it meanwhile
    ++result_.reclaimable;
    result_.reclaimable_bytes += static_cast<std::uint64_t>(info.st_size);
    if (options_.verbose || result_.reclaimable <= kNamed) tell(Ink::warning, "reclaimable", below_home(path));
    if (!options_.repair) return;
    os_unlink(path);
    ++result_.reclaimed;
}

// Where damage hides what leads where, a file that nothing leads to may be mail: it is no leaving until that is
// settled.
void Check::sort_out_orphans() {
    for (const StoreFile& file : store_) {
        if (file.claims != 0) continue;
        if (file.in_hand) {
            ++result_.living;
        } else if (blind_) {
            ++result_.unclear;
        } else {
            reclaim(im_ItemRef2FName(ref_of(file)));
        }
    }
}

void Check::summarise() {
    if (!options_.verbose && result_.reclaimable > kNamed)
        tell(Ink::warning, "reclaimable",
             "... and " + with_commas(result_.reclaimable - kNamed) + " more, named with --verbose");
    out_ << counted(result_.entries, "entry", "entries") << ", " << counted(result_.messages, "message", "messages")
         << ", " << counted(result_.files, "file", "files") << " checked: ";
    out_ << (result_.damage == 0 ? screen_.paint(Ink::good, "no damage")
                                 : screen_.paint(Ink::damage, counted(result_.damage, "damage", "damages")));
    if (result_.living > 0) out_ << ", " << counted(result_.living, "file", "files") << " of processes at work";
    if (result_.unclear > 0)
        out_ << ", " << counted(result_.unclear, "file", "files") << " left alone that may belong to what is damaged";
    if (result_.foreign > 0) out_ << ", " << counted(result_.foreign, "foreign file", "foreign files");
    if (result_.reclaimable > 0)
        out_ << ", " << counted(result_.reclaimable, "file", "files")
             << (options_.repair ? " reclaimed (" : " reclaimable (") << human_size(result_.reclaimable_bytes) << ')';
    out_ << '\n';
}

FsckResult Check::run() {
    check_layout();
    check_configuration();
    list_store();
    ask_who_is_at_work();
    check_queues();
    check_scratch();
    sort_out_orphans();
    summarise();
    return result_;
}

}  // namespace

FsckResult check_home(const FsckOptions& options, Printer& out, const Screen& screen) {
    return Check(options, out, screen).run();
}

int fsck(const FsckOptions& options, Printer& out, const Screen& screen) {
    return check_home(options, out, screen).damage == 0 ? 0 : 1;
}

}  // namespace morvane
