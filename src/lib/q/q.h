// Queues: a folder queues/<NAME>/{tmp,new,cur}. An entry is one file named <rank>-<nanoseconds, 20 digits>-<pid>-<n>;
// rank 0 urgent (priority 2), 1 normal (0), 2 non-urgent (1), so that the order of names is the order of service.
//
// An entry holds one record 92 for each message: ITEM_REF@16 of the message file, i32@36 priority, i64@40 seconds when
// queued. The commit is one rename from tmp/ to new/.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "msg/msg.h"

// Queues messages (one at least) in one entry: writes the entry, makes every file of theirs and the directories that
// name them durable with one wait, renames the entry into new/ (the commit) and makes that durable. Raises before the
// rename or not at all; afterwards failures are only logged. Every message must be finished (Msg_File::finish).
void Q_PutMsgsOnQueue(std::string_view queue, std::span<Msg_File* const> messages, int priority);
void Q_PutMsgOnQueue(std::string_view queue, Msg_File& message, int priority);
void Q_CloseQueues();                         // closes the descriptors that queueing kept open
void Q_make_folders(std::string_view queue);  // for `morvane init`

// For consumers and tools. An entry belongs to who takes it: of several that try, one succeeds, the others get ENOENT.
// A name that is not a plain file name is EINVAL, a damaged entry EILSEQ.
struct Q_Entry {
    std::string name;      // file name
    bool taken = false;    // in cur/ rather than new/
    bool damaged = false;  // not a sequence of records, or no message in it: nothing below is set
    int priority = 0;
    std::int64_t seconds = 0;
    std::vector<ITEM_REF> messages;
};
// In order of service, new/ before cur/; an entry that is taken or done meanwhile is listed once or not at all.
std::vector<Q_Entry> Q_List(std::string_view queue);
Q_Entry Q_Take(std::string_view queue, const std::string& name);  // moves it to cur/; a damaged entry stays in new/
// Deletes a taken entry and all files of its messages: first the entry, durably, for files without an entry are
// reclaimable and an entry without files is damage. Files that are gone already do not matter.
void Q_Done(std::string_view queue, const std::string& name);
// Takes a waiting entry and is done with it. Of a damaged one nothing but itself can be deleted.
void Q_Remove(std::string_view queue, const std::string& name);
