// Finding entries, messages and files: see store.h.
#include "morvane/store.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>

#include "er/er.h"
#include "morvane/failure.h"
#include "morvane/layout.h"
#include "morvane/printer.h"
#include "morvane/record_file.h"
#include "os/os.h"
#include "tf/record.h"

namespace morvane {
namespace {

constexpr std::size_t kIdDigits = 16;

std::vector<std::string> file_names(const std::string& folder) {
    std::vector<std::string> names;
    er_Translate([&] {
        for (const auto& file : std::filesystem::directory_iterator(folder))
            names.push_back(file.path().filename().string());
    });
    std::sort(names.begin(), names.end());
    return names;
}

// "<rank>-<nanoseconds, 20 digits>-<pid>-<n>": entries are in order of time by what follows the rank.
std::string_view time_part(std::string_view entry) {
    const std::size_t dash = entry.find('-');
    return dash == std::string_view::npos ? entry : entry.substr(dash + 1);
}

// The record files among the extensions, the likeliest first.
constexpr std::string_view kExtensions[] = {kMessageFile, kTransferFile, kDataItem, kScratchItem};

// A file of the store named by its id, "00000000000a513f" or "00000000000a513f.item"; nothing when `what` is no such
// name.
std::optional<ITEM_REF> item_called(std::string_view what) {
    if (what.size() == kIdDigits + 5) return im_FName2ItemRef(what);
    if (what.size() != kIdDigits) return std::nullopt;
    const auto called = [&](std::string_view extension) {
        return im_FName2ItemRef(std::string(what) + '.' + std::string(extension));
    };
    for (const std::string_view extension : kExtensions)
        if (const auto ref = called(extension); ref && os_fexists(im_ItemRef2FName(*ref))) return ref;
    return called(kMessageFile);
}

Subject::Kind kind_of_type(std::int32_t type) {
    if (type == TFREC_queue_entry) return Subject::Kind::entry;
    if (type == TFREC_queue_file_start || type == TFREC_message_file) return Subject::Kind::message;
    return Subject::Kind::records;
}

// A file is what its first record says; a file without one is for the reader of record files to refuse.
Subject subject_of_file(const std::string& path) {
    Subject subject;
    subject.path = os_HomePath(path);
    const std::optional<ITEM_REF> ref = im_FName2ItemRef(subject.path);
    const std::string_view extension = ref ? std::string_view(ref->extension.data(), 4) : std::string_view{};
    if (extension == kDataItem) subject.kind = Subject::Kind::item;
    if (extension == kDataItem) return subject;
    ByteFile file = ByteFile::open(subject.path);
    RecordPlace place;
    if (RecordWalker walker(file); walker.next(place)) subject.kind = kind_of_type(place.type);
    if (subject.kind == Subject::Kind::entry) subject.entry = std::filesystem::path(subject.path).filename().string();
    return subject;
}

Subject subject_of_entry(std::string_view queue, const EntryName& entry) {
    Subject subject;
    subject.kind = Subject::Kind::entry;
    subject.path = entry_path(queue, entry);
    subject.entry = entry.name;
    subject.state = std::string(entry.taken ? "taken from " : "waiting in ") + std::string(queue);
    return subject;
}

}  // namespace

std::string entry_path(std::string_view queue, const EntryName& entry) {
    return os_HomePath("~/queues/" + std::string(queue) + (entry.taken ? "/cur/" : "/new/") + entry.name);
}

std::vector<EntryName> entry_names(std::string_view queue) {
    std::vector<EntryName> entries;
    const std::string folder = os_HomePath("~/queues/" + std::string(queue));
    for (const bool taken : {false, true})
        for (std::string& name : file_names(folder + (taken ? "/cur" : "/new")))
            if (!name.starts_with('.')) entries.push_back({std::move(name), taken});
    return entries;
}

std::vector<std::string> queue_names() { return file_names(os_HomePath("~/queues")); }

EntryName find_entry(const std::vector<EntryName>& entries, std::string_view queue, std::string_view what) {
    const EntryName* found = nullptr;
    std::size_t matches = 0;
    for (const EntryName& entry : entries) {
        if (entry.name == what) return entry;
        if (!entry.name.starts_with(what) && !entry.name.ends_with(what)) continue;
        found = &entry;
        ++matches;
    }
    if (matches == 1) return *found;
    const std::string quoted = '"' + std::string(what) + '"';
    if (matches == 0) throw Failure("no entry of " + std::string(queue) + " and no file is called " + quoted);
    throw Failure(counted(matches, "entry", "entries") + " of " + std::string(queue) + " begin or end with " + quoted);
}

std::optional<EntryName> last_entry(const std::vector<EntryName>& entries) {
    const auto last = std::max_element(entries.begin(), entries.end(), [](const EntryName& a, const EntryName& b) {
        return time_part(a.name) < time_part(b.name);
    });
    if (last == entries.end()) return std::nullopt;
    return *last;
}

std::vector<QueuedMessage> read_entry(const std::string& path) {
    ByteFile file = ByteFile::open(path);
    RecordWalker walker(file);
    std::vector<QueuedMessage> messages;
    for (RecordPlace place; walker.next(place);) {
        if (place.type != TFREC_queue_entry)
            throw RecordFailure(file.name(), place.position,
                                "a record of type " + std::to_string(place.type) + " in a queue entry");
        const FieldList fields = read_fields(*find_record(place.type), walker.head(place), place.length);
        const FieldValue* item = fields.find("item");
        if (item == nullptr || fields.missing != nullptr)
            throw RecordFailure(file.name(), place.position, "the record is too short");
        messages.push_back({item->item, static_cast<int>(fields.number("priority")), fields.number("queued")});
    }
    if (messages.empty()) throw RecordFailure(file.name(), 0, "the entry queues nothing");
    return messages;
}

MessageFile read_message(const std::string& path) {
    ByteFile file = ByteFile::open(path);
    RecordWalker walker(file);
    MessageFile message;
    message.path = file.name();
    bool started = false;
    for (RecordPlace place; walker.next(place);) {
        const bool start = place.type == TFREC_queue_file_start;
        if (start == started || (!start && place.type != TFREC_message_file))
            throw RecordFailure(file.name(), place.position,
                                "a record of type " + std::to_string(place.type) +
                                    (started ? " in" : " at the start of") + " a message file");
        started = true;
        const FieldList fields = read_fields(*find_record(place.type), walker.head(place), place.length);
        if (fields.missing != nullptr) throw RecordFailure(file.name(), place.position, "the record is too short");
        if (start) {
            message.version = static_cast<std::int32_t>(fields.number("formatVersion"));
            message.route = fields.text("filterRoute");
        } else {
            message.files.push_back(fields.find("item")->item);
        }
    }
    if (message.files.empty()) throw RecordFailure(file.name(), file.size(), "the message has no transfer file");
    return message;
}

std::string item_name(const ITEM_REF& ref) {
    const std::string path = im_ItemRef2FName(ref);
    return harmless(path.substr(path.size() - kIdDigits - 5), Screen{});
}

std::uint64_t size_of_file(const std::string& path) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    return error ? 0 : size;
}

std::string file_path(const ITEM_REF& ref, const std::string& message_path) {
    const std::string stored = im_ItemRef2FName(ref);
    const std::size_t slash = message_path.rfind('/');
    if (slash == std::string::npos) return stored;
    std::string beside = message_path.substr(0, slash) + stored.substr(stored.size() - kIdDigits - 6);
    return os_fexists(beside) ? beside : stored;
}

Subject find_subject(std::string_view queue, const std::string& what) {
    if (what.empty()) {
        const std::optional<EntryName> last = last_entry(entry_names(queue));
        if (!last) throw Failure("nothing is queued on " + std::string(queue));
        return subject_of_entry(queue, *last);
    }
    if (what.find('/') != std::string::npos || os_fexists(what)) return subject_of_file(what);
    if (const std::optional<ITEM_REF> ref = item_called(what)) return subject_of_file(im_ItemRef2FName(*ref));
    return subject_of_entry(queue, find_entry(entry_names(queue), queue, what));
}

}  // namespace morvane
