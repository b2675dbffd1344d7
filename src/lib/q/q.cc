// Putting messages on a queue: the commit. See q.h.
#include "q/q.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <map>

#include "cust/cust.h"
#include "er/er.h"

namespace {

// The folders of a queue that this process uses, open from the first message on.
struct Folders {
    std::string path;
    os_Fd tmp, fresh;
};

std::map<std::string, Folders, std::less<>>& open_queues() {
    static std::map<std::string, Folders, std::less<>> queues;
    return queues;
}

Folders& folders_of(std::string_view queue) {
    auto& queues = open_queues();
    const std::string path = os_HomePath("~/queues/" + std::string(queue));
    const auto found = queues.find(queue);
    if (found != queues.end() && found->second.path == path) return found->second;
    Folders folders;
    folders.path = path;
    folders.tmp = os_open(path + "/tmp", O_RDONLY | O_DIRECTORY);
    folders.fresh = os_open(path + "/new", O_RDONLY | O_DIRECTORY);
    return queues.insert_or_assign(std::string(queue), std::move(folders)).first->second;
}

// Urgent before normal before non-urgent, by name.
char rank_of(int priority) { return priority == 2 ? '0' : priority == 1 ? '2' : '1'; }

std::string entry_name(int priority) {
    static unsigned running = 0;
    std::string nanoseconds = std::to_string(os_now_nanoseconds());
    nanoseconds.insert(0, 20 - nanoseconds.size(), '0');
    return std::string(1, rank_of(priority)) + '-' + nanoseconds + '-' + std::to_string(::getpid()) + '-' +
           std::to_string(++running);
}

std::string entry_content(std::span<Msg_File* const> messages, int priority) {
    std::string content;
    const std::int64_t now = os_Date().seconds;
    for (const Msg_File* message : messages) {
        tf_Record record(TFREC_queue_entry);
        record.put_ref(16, message->ref());
        record.put32(36, priority);
        record.put64(40, now);
        content += record.bytes();
    }
    return content;
}

// Every file that the messages consist of.
std::vector<ITEM_REF> files_of(std::span<Msg_File* const> messages) {
    std::vector<ITEM_REF> files;
    for (const Msg_File* message : messages) message->list_files(files);
    return files;
}

// By what the disk is awaited; a word that is none of ours leaves it to be chosen.
im_SyncBy sync_way() {
    const std::string by = cust_GetCustomiseInfo("QUEUE_SYNC_BY").value_or("");
    if (by == "files") return im_SyncBy::files;
    return by == "filesystem" ? im_SyncBy::file_systems : im_SyncBy::choose;
}

// The entry while it lies in tmp/: removed again unless it was committed.
class Draft {
public:
    Draft(const Folders& folders, std::string name) : folders_(folders), name_(std::move(name)) {
        fd_ = os_Fd(::openat(folders.tmp.get(), name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!fd_) er_SystemEscape(errno, folders.path + "/tmp/" + name_);
    }
    ~Draft() {
        if (!committed_) ::unlinkat(folders_.tmp.get(), name_.c_str(), 0);
    }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    void write(std::string_view content) { os_write_all(fd_.get(), content); }
    void sync(std::span<const ITEM_REF> items) {
        const int entry[] = {fd_.get()};
        im_SyncItems(items, entry, sync_way());
    }
    void close() { fd_.close_checked(); }
    void commit() {
        if (!rename(RENAME_NOREPLACE) && (errno != EINVAL || !rename(0)))  // EINVAL: a file system without the flag
            er_SystemEscape(errno, folders_.path + "/new/" + name_);
        committed_ = true;
    }

private:
    bool rename(unsigned flags) {
        return ::renameat2(folders_.tmp.get(), name_.c_str(), folders_.fresh.get(), name_.c_str(), flags) == 0;
    }

    const Folders& folders_;
    std::string name_;
    os_Fd fd_;
    bool committed_ = false;
};

}  // namespace

void Q_PutMsgsOnQueue(std::string_view queue, std::span<Msg_File* const> messages, int priority) {
    const Folders& folders = folders_of(queue);
    const bool durable = cust_GetBoolean("QUEUE_SYNC", true);
    Draft draft(folders, entry_name(priority));
    draft.write(entry_content(messages, priority));
    if (durable) draft.sync(files_of(messages));
    draft.close();
    draft.commit();
    for (Msg_File* message : messages) message->keep();
    if (durable && ::fsync(folders.fresh.get()) != 0)
        er_LogMsg(3, kGatewayGroup, 0, "queue folder not synced", folders.path, errno);
}

void Q_PutMsgOnQueue(std::string_view queue, Msg_File& message, int priority) {
    Msg_File* const messages[] = {&message};
    Q_PutMsgsOnQueue(queue, messages, priority);
}

void Q_CloseQueues() { open_queues().clear(); }

void Q_make_folders(std::string_view queue) {
    for (const std::string_view folder : {"tmp", "new", "cur"})
        os_mkdirs("~/queues/" + std::string(queue) + "/" + std::string(folder), 0700);
}
