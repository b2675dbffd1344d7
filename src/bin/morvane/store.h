// Finding what an operator means: queue entries, messages, files of the store. All of it is read as foreign bytes, so
// that what is damaged can be shown and told.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "im/im.h"

namespace morvane {

inline constexpr std::string_view kRouterQueue = "ROUTER";

struct EntryName {
    std::string name;
    bool taken = false;  // in cur/ rather than new/
};
std::string entry_path(std::string_view queue, const EntryName& entry);
// The entries of a queue in order of service, those that wait before those that are taken. Raises for a queue that
// does not exist.
std::vector<EntryName> entry_names(std::string_view queue);
std::vector<std::string> queue_names();

// The one entry that is named, or whose name alone begins or ends with `what`; a Failure when there is none, or
// several.
EntryName find_entry(const std::vector<EntryName>& entries, std::string_view queue, std::string_view what);
// The entry queued last, whatever its priority; nothing on an empty queue.
std::optional<EntryName> last_entry(const std::vector<EntryName>& entries);

// What one record of an entry queues.
struct QueuedMessage {
    ITEM_REF message;
    int priority = 0;
    std::int64_t seconds = 0;
};
// Raises RecordFailure for a damaged entry; the system's reason when it has gone.
std::vector<QueuedMessage> read_entry(const std::string& path);

struct MessageFile {
    std::string path;
    std::int32_t version = 0;
    std::string route;
    std::vector<ITEM_REF> files;  // the main transfer file, then the attached files
};
MessageFile read_message(const std::string& path);

// Where a file lies: beside the message file that names it when it was exported there, else in the store.
std::string file_path(const ITEM_REF& ref, const std::string& message_path);
std::uint64_t size_of_file(const std::string& path);  // 0 when it is missing
std::string item_name(const ITEM_REF& ref);           // "00000000000a513f.item", made harmless

// What `show`, `item` and others take as ID|FILE.
struct Subject {
    enum class Kind { entry, message, records, item } kind = Kind::records;
    std::string path;
    std::string entry;  // of an entry: its name
    std::string state;  // of an entry in a queue: "waiting in ROUTER"
};
// An empty text is the entry queued last; a path or an existing file is that file, told by its first record; 16 hex
// digits (with or without an extension) are a file of the store; anything else names an entry.
Subject find_subject(std::string_view queue, const std::string& what);

}  // namespace morvane
