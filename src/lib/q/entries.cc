// Queues as a consumer sees them: listing, taking, finishing entries. See q.h.
#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "er/er.h"
#include "q/q.h"

namespace {

constexpr std::size_t kEntryLimit = 1 << 20;
constexpr std::size_t kMessageFileLimit = std::size_t{256} << 20;

std::string folder_of(std::string_view queue, bool taken) {
    return os_HomePath("~/queues/" + std::string(queue) + (taken ? "/cur/" : "/new/"));
}

// Every record of a record file that is held whole.
template <class Visit>
void for_each_record(const std::string& content, const std::string& path, Visit visit) {
    std::size_t at = 0;
    while (at < content.size()) {
        tf_Record record;
        record.assign(content.substr(at, 4));
        const auto size = static_cast<std::uint32_t>(record.get32(0));
        if (size < kTfHeaderSize || size > content.size() - at) er_SystemEscape(EILSEQ, path);
        record.assign(content.substr(at, size));
        visit(record);
        at += size;
    }
}

Q_Entry read_entry(std::string_view queue, const std::string& name, bool taken) {
    Q_Entry entry;
    entry.name = name;
    entry.taken = taken;
    const std::string path = folder_of(queue, taken) + name;
    for_each_record(os_read_file(path, kEntryLimit), path, [&](const tf_Record& record) {
        if (record.type() != TFREC_queue_entry) return;
        entry.messages.push_back(record.get_ref(16));
        entry.priority = record.get32(36);
        entry.seconds = record.get64(40);
    });
    return entry;
}

void list_folder(std::string_view queue, bool taken, std::vector<Q_Entry>& entries) {
    std::vector<std::string> names;
    er_Translate([&] {
        for (const auto& file : std::filesystem::directory_iterator(folder_of(queue, taken)))
            names.push_back(file.path().filename().string());
    });
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        try {
            entries.push_back(read_entry(queue, name, taken));
        } catch (const er_Escape& escape) {
            if (escape.group() != kSystemGroup || escape.reason() != ENOENT) throw;  // taken while we looked
        }
    }
}

// The message files of an entry and everything that they tie together.
void delete_files(const Q_Entry& entry) {
    for (const ITEM_REF& message : entry.messages) {
        const std::string path = im_ItemRef2FName(message);
        for_each_record(os_read_file(path, kMessageFileLimit), path, [](const tf_Record& record) {
            if (record.type() == TFREC_message_file) im_UnlinkItem(record.get_ref(16));
        });
        im_UnlinkItem(message);
    }
}

void delete_entry(std::string_view queue, const std::string& name, bool taken) {
    const Q_Entry entry = read_entry(queue, name, taken);
    os_unlink(folder_of(queue, taken) + name);  // first: files without an entry are reclaimable, an entry without files is damage
    delete_files(entry);
}

}  // namespace

std::vector<Q_Entry> Q_List(std::string_view queue) {
    std::vector<Q_Entry> entries;
    list_folder(queue, false, entries);
    list_folder(queue, true, entries);
    return entries;
}

Q_Entry Q_Take(std::string_view queue, const std::string& name) {
    os_rename(folder_of(queue, false) + name, folder_of(queue, true) + name);
    return read_entry(queue, name, true);
}

void Q_Done(std::string_view queue, const std::string& name) { delete_entry(queue, name, true); }
void Q_Remove(std::string_view queue, const std::string& name) { delete_entry(queue, name, false); }
