// Whole sessions for fuzz targets: a home in memory, the gateway's own session on a descriptor, and what came of it.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "../unit/support/reset.h"
#include "aud/aud.h"
#include "er/er.h"
#include "fuzz_home.h"
#include "im/im.h"
#include "os/os.h"
#include "q/q.h"
#include "tf/file.h"
#include "tf/record.h"
#include "ux_in/lines.h"
#include "ux_in/recipients.h"
#include "ux_in/records.h"
#include "ux_in/session.h"

namespace session_room {

inline constexpr std::size_t kFileLimit = std::size_t{256} << 20;

// Before anything else, once a process.
inline void make_home() {
    static const FuzzHome home("INET_LOCAL_DOMAINS = \"here\"\n");
    std::signal(SIGPIPE, SIG_IGN);
}

// What came of a session: its replies, how it ended, the bytes of all queued files without the ids in them.
struct Outcome {
    std::string replies, end;
    std::vector<std::string> files;
    std::vector<std::string> items;  // those of them that are not record files: what became of the leaves
    bool operator==(const Outcome&) const = default;
};

// The record file as its records' types and fields; ids and the time of a message without a date are left out.
inline std::string without_what_changes(const std::string& bytes) {
    im_Item item = im_CrNewDataItem();
    item.write(bytes);
    tf_File file = tf_open(std::move(item));
    std::string kept;
    tf_Record record;
    while (tf_ReadRecord(file, record)) {
        const bool wrapped = record.type() == TFREC_wrapped;  // of an encapsulated message
        if (record.get32(wrapped ? kTfHeaderSize + 4 : 4) != TFREC_creation_date) kept += record.bytes();
    }
    return kept;
}

inline void take_message(const ITEM_REF& ref, Outcome& outcome) {
    const std::string message = os_read_file(im_ItemRef2FName(ref), kFileLimit);
    im_Item item = im_CrNewDataItem();
    item.write(message);
    tf_File file = tf_open(std::move(item));
    tf_Record record;
    while (tf_ReadRecord(file, record)) {
        if (record.type() != TFREC_message_file) continue;
        const ITEM_REF part = record.get_ref(16);
        const std::string content = os_read_file(im_ItemRef2FName(part), kFileLimit);
        const bool records = std::string_view(part.extension.data(), 4) == kTransferFile;
        outcome.files.push_back(records ? without_what_changes(content) : content);
        if (!records) outcome.items.push_back(content);
    }
}

// Runs a session on a descriptor, its replies caught.
inline Outcome run(int input) {
    const FreshGateway fresh;
    Outcome outcome;
    const os_Fd caught(::memfd_create("replies", MFD_CLOEXEC)), saved(::dup(STDOUT_FILENO));
    ::dup2(caught.get(), STDOUT_FILENO);
    ux_SetInput(input);
    try {
        outcome.end = ux_InUnixToMorvaneMapper("") ? "errors" : "clean";
    } catch (const er_Escape& escape) {
        outcome.end = std::to_string(escape.group()) + "." + std::to_string(escape.reason());
    }
    ::dup2(saved.get(), STDOUT_FILENO);
    outcome.replies.resize(os_fsize(caught.get()));
    os_pread(caught.get(), outcome.replies.data(), outcome.replies.size(), 0);
    aud_AbortTransaction(ux_audit().AuditHandle);
    for (const Q_Entry& entry : Q_List("ROUTER")) {
        require(!entry.damaged);
        for (const ITEM_REF& ref : entry.messages) take_message(ref, outcome);
        Q_Remove("ROUTER", entry.name);
    }
    return outcome;
}

inline Outcome run_whole(std::string_view dialogue) {
    const os_Fd file(::memfd_create("dialogue", MFD_CLOEXEC));
    os_write_all(file.get(), dialogue);
    ::lseek(file.get(), 0, SEEK_SET);
    return run(file.get());
}

inline Outcome run_in_pieces(std::string_view dialogue, std::size_t piece) {
    int ends[2];
    require(::pipe2(ends, O_CLOEXEC) == 0);
    const os_Fd reading(ends[0]);
    std::thread agent([&] {
        const os_Fd writing(ends[1]);
        for (std::size_t at = 0; at < dialogue.size(); at += piece) {
            const std::string_view next = dialogue.substr(at, piece);
            if (::write(writing.get(), next.data(), next.size()) != static_cast<ssize_t>(next.size())) return;
        }
    });
    Outcome outcome = run(reading.get());
    std::string rest(4096, '\0');
    while (::read(reading.get(), rest.data(), rest.size()) > 0) {}
    agent.join();
    return outcome;
}

}  // namespace session_room
