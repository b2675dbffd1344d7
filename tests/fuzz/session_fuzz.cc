// Whole sessions: whatever the agent writes, the dialogue ends, every queued message is complete, nothing that is not
// queued stays in the store, and what comes of it does not depend on how the input was cut on its way through a pipe.
#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "aud/aud.h"
#include "cust/cust.h"
#include "er/er.h"
#include "im/im.h"
#include "nm/nm.h"
#include "os/os.h"
#include "q/q.h"
#include "ux_in/addresses.h"
#include "ux_in/charsets.h"
#include "ux_in/driver.h"
#include "ux_in/header.h"
#include "ux_in/identifiers.h"
#include "ux_in/lines.h"
#include "ux_in/part_info.h"
#include "ux_in/recipients.h"
#include "ux_in/records.h"
#include "ux_in/session.h"

namespace {

constexpr std::size_t kFileLimit = std::size_t{256} << 20;

void require(bool held) {
    if (!held) std::abort();
}

std::string home_folder;

void remove_home() { std::filesystem::remove_all(home_folder); }

// A home in memory, without waiting for disks.
void make_home() {
    home_folder = std::filesystem::exists("/dev/shm") ? "/dev/shm/fuzz-home-XXXXXX" : "/tmp/fuzz-home-XXXXXX";
    require(::mkdtemp(home_folder.data()) != nullptr);
    std::atexit(remove_home);
    os_SetHome(home_folder);
    for (const char* folder : {"~/sys", "~/tmp", "~/logs", "~/nls"}) os_mkdirs(folder, 0700);
    std::ofstream(home_folder + "/sys/config") << std::string(512, '\0');
    std::ofstream(home_folder + "/sys/gateway.toml")
        << "QUEUE_SYNC = false\nAUDIT = false\nINET_LOCAL_DOMAINS = \"here\"\n";
    im_make_folders();
    Q_make_folders("ROUTER");
}

void reset() {
    ux_reset_recipients();
    ux_reset_directory();
    ux_reset_audit();
    ux_reset_records();
    ux_reset_identifiers();
    ux_reset_addresses();
    ux_reset_charsets();
    ux_reset_part_info();
    ux_reset_header();
    ux_reset_driver();
    nm_reset();
}

// What came of a session: its replies, how it ended, the bytes of all queued files without the ids in them.
struct Outcome {
    std::string replies, end;
    std::vector<std::string> files;
    bool operator==(const Outcome&) const = default;
};

// The record file as its records' types and fields; ids and the time of a message without a date are left out.
std::string without_what_changes(const std::string& bytes) {
    im_Item item = im_CrNewDataItem();
    item.write(bytes);
    tf_File file = tf_open(std::move(item));
    std::string kept;
    tf_Record record;
    while (tf_ReadRecord(file, record)) {
        tf_Record inner = record;  // a message inside that has no date gets that of now as well
        if (record.type() == TFREC_wrapped) tf_ChangeFromWrapRec(inner);
        if (inner.type() != TFREC_creation_date) kept += record.bytes();
    }
    return kept;
}

void take_message(const ITEM_REF& ref, Outcome& outcome) {
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
    }
}

// Looks into some five hundred folders, so it is done without allocating anything for each.
bool store_is_empty() {
    static const std::vector<std::string> folders = [] {
        std::vector<std::string> all;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(home_folder + "/data"))
            all.push_back(entry.path());
        return all;
    }();
    return std::ranges::none_of(folders, [](const std::string& folder) {
        DIR* const open = ::opendir(folder.c_str());
        require(open != nullptr);
        bool file = false;
        while (const dirent* entry = ::readdir(open)) file = file || entry->d_type == DT_REG;
        ::closedir(open);
        return file;
    });
}

// Runs a session on a descriptor, its replies caught.
Outcome run(int input) {
    reset();
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

Outcome run_whole(std::string_view dialogue) {
    const os_Fd file(::memfd_create("dialogue", MFD_CLOEXEC));
    os_write_all(file.get(), dialogue);
    ::lseek(file.get(), 0, SEEK_SET);
    return run(file.get());
}

Outcome run_in_pieces(std::string_view dialogue, std::size_t piece) {
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

}  // namespace

// The first byte chooses how the input is cut. One that begins with "!" is a message text, the envelope goes without
// saying.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (home_folder.empty()) {
        std::signal(SIGPIPE, SIG_IGN);
        make_home();
    }
    if (size < 2) return 0;
    std::string dialogue(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (dialogue.front() == '!')
        dialogue = "MAIL FROM:<s@x>\nRCPT TO:<r@x>\nDATA\n" + dialogue.substr(1) + "\n.\nQUIT\n";
    const Outcome whole = run_whole(dialogue);
    require(!whole.replies.empty() && whole.replies.back() == '\n');
    require(store_is_empty());
    require(whole == run_in_pieces(dialogue, 1 + data[0] % 61 + dialogue.size() / 128));
    return 0;
}
