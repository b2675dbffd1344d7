// Queues as a consumer sees them: listing, taking, finishing entries. See q.h.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <optional>

#include "er/er.h"
#include "q/q.h"

namespace {

constexpr std::size_t kEntryLimit = std::size_t{1} << 20;
constexpr std::size_t kMessageFileLimit = std::size_t{256} << 20;

enum class Folder { waiting, taken };

std::string path_of(std::string_view queue, Folder folder) {
    return os_HomePath("~/queues/" + std::string(queue) + (folder == Folder::taken ? "/cur" : "/new"));
}

std::string path_of(std::string_view queue, Folder folder, const std::string& name) {
    if (name.empty() || name.starts_with('.') || name.find('/') != std::string::npos)
        er_SystemEscape(EINVAL, "queue entry " + name);
    return path_of(queue, folder) + '/' + name;
}

// The whole content of a file that is there; its consumer may delete it at any moment.
std::optional<std::string> content_of(const std::string& path, std::size_t limit) {
    const os_Fd file = os_open_if_there(path, O_RDONLY);
    if (!file) return std::nullopt;
    return os_read_rest(file.get(), limit, path);
}

// Visits every record of a record file that is held whole; false when it is none.
template <class Visit>
bool for_each_record(std::string_view content, Visit visit) {
    while (!content.empty()) {
        const std::uint32_t size = tf_record_size(content);
        if (size == 0 || size > content.size()) return false;
        tf_Record record;
        record.assign(std::string(content.substr(0, size)));
        visit(record);
        content.remove_prefix(size);
    }
    return true;
}

std::optional<Q_Entry> read_entry(std::string_view queue, Folder folder, const std::string& name) {
    const std::optional<std::string> content = content_of(path_of(queue, folder, name), kEntryLimit);
    if (!content) return std::nullopt;
    Q_Entry entry;
    const bool whole = for_each_record(*content, [&](const tf_Record& record) {
        if (record.type() != TFREC_queue_entry) return;
        entry.messages.push_back(record.get_ref(16));
        entry.priority = record.get32(36);
        entry.seconds = record.get64(40);
    });
    if (!whole || entry.messages.empty()) {
        entry = Q_Entry{};
        entry.damaged = true;
    }
    entry.name = name;
    entry.taken = folder == Folder::taken;
    return entry;
}

Q_Entry sound_entry(std::string_view queue, Folder folder, const std::string& name) {
    std::optional<Q_Entry> entry = read_entry(queue, folder, name);
    if (!entry) er_SystemEscape(ENOENT, path_of(queue, folder, name));
    if (entry->damaged) er_SystemEscape(EILSEQ, path_of(queue, folder, name));
    return *std::move(entry);
}

std::vector<std::string> names_in(const std::string& folder) {
    std::vector<std::string> names;
    er_Translate([&] {
        for (const auto& file : std::filesystem::directory_iterator(folder))
            if (std::string name = file.path().filename().string(); !name.starts_with('.'))
                names.push_back(std::move(name));
    });
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<Q_Entry> list_folder(std::string_view queue, Folder folder) {
    std::vector<Q_Entry> entries;
    for (const std::string& name : names_in(path_of(queue, folder)))
        if (std::optional<Q_Entry> entry = read_entry(queue, folder, name)) entries.push_back(*std::move(entry));
    return entries;
}

// The message files of an entry and everything that they tie together.
std::vector<ITEM_REF> files_of(const Q_Entry& entry) {
    std::vector<ITEM_REF> files;
    for (const ITEM_REF& message : entry.messages) {
        const std::string path = im_ItemRef2FName(message);
        const std::optional<std::string> content = content_of(path, kMessageFileLimit);
        if (!content) continue;
        const bool whole = for_each_record(*content, [&](const tf_Record& record) {
            if (record.type() == TFREC_message_file) files.push_back(record.get_ref(16));
        });
        if (!whole) er_LogMsg(5, kGatewayGroup, 0, "message file damaged", path);
        files.push_back(message);
    }
    return files;
}

void delete_durably(const std::string& folder, const std::string& path) {
    if (::unlink(path.c_str()) != 0) er_SystemEscape(errno, path);
    const os_Fd fd = os_open(folder, O_RDONLY | O_DIRECTORY);
    os_fsync(fd.get());
}

}  // namespace

std::vector<Q_Entry> Q_List(std::string_view queue) {
    std::vector<Q_Entry> entries = list_folder(queue, Folder::waiting);
    std::vector<Q_Entry> taken = list_folder(queue, Folder::taken);  // after it: nothing slips past between the two
    std::erase_if(entries, [&](const Q_Entry& entry) {               // taken while we looked
        return std::binary_search(taken.begin(), taken.end(), entry,
                                  [](const Q_Entry& a, const Q_Entry& b) { return a.name < b.name; });
    });
    std::move(taken.begin(), taken.end(), std::back_inserter(entries));
    return entries;
}

Q_Entry Q_Take(std::string_view queue, const std::string& name) {
    Q_Entry entry = sound_entry(queue, Folder::waiting, name);
    os_rename(path_of(queue, Folder::waiting, name), path_of(queue, Folder::taken, name));
    entry.taken = true;
    return entry;
}

void Q_Done(std::string_view queue, const std::string& name) {
    const std::vector<ITEM_REF> files = files_of(sound_entry(queue, Folder::taken, name));
    delete_durably(path_of(queue, Folder::taken), path_of(queue, Folder::taken, name));
    for (const ITEM_REF& file : files) im_UnlinkItem(file);
}

void Q_Remove(std::string_view queue, const std::string& name) {
    const std::optional<Q_Entry> entry = read_entry(queue, Folder::waiting, name);
    if (entry && entry->damaged)
        return delete_durably(path_of(queue, Folder::waiting), path_of(queue, Folder::waiting, name));
    Q_Take(queue, name);
    Q_Done(queue, name);
}
