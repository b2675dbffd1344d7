// Whole reports: whatever the text says, the message becomes native reports or the ordinary mail that it is where
// reports are never converted, record by record and item by item: never neither, never both, and never half of it. What
// it becomes does not depend on its line ends.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
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
#include "ux_mimein/mail_input.h"
#include "ux_mimein/mime_part.h"
#include "ux_mimein/report_recipients.h"

namespace {

constexpr std::size_t kFileLimit = std::size_t{256} << 20;
constexpr std::string_view kKeys =
    "QUEUE_SYNC = false\nAUDIT = false\nINET_LOCAL_DOMAINS = \"here\"\nUXI_MIME_CS_AUTODETECT = \"N\"\n";

void require(bool held) {
    if (!held) std::abort();
}

std::string home_folder;

void remove_home() { std::filesystem::remove_all(home_folder); }

void make_home() {
    home_folder = std::filesystem::exists("/dev/shm") ? "/dev/shm/fuzz-home-XXXXXX" : "/tmp/fuzz-home-XXXXXX";
    require(::mkdtemp(home_folder.data()) != nullptr);
    std::atexit(remove_home);
    os_SetHome(home_folder);
    for (const char* folder : {"~/sys", "~/tmp", "~/logs", "~/nls"}) os_mkdirs(folder, 0700);
    std::ofstream(home_folder + "/sys/config") << std::string(512, '\0');
    im_make_folders();
    Q_make_folders("ROUTER");
}

void reset(bool convert_reports) {
    std::ofstream(home_folder + "/sys/gateway.toml")
        << kKeys << (convert_reports ? "" : "UXI_NO_CONVERT_REPORTS = true\n");
    cust_Reset();
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
    ux_reset_mime_state();
    ux_reset_mime_input();
    ux_reset_report();
    nm_reset();
    ux_charsets().FromCharSet = ux_charsets().ToLatinCS = "ISO8859_1";
    ux_charsets().DoCSAutoDetect = 'N';
}

struct Message {
    bool native = false;               // a report of our own
    std::vector<std::string> content;  // records, then the other files
    bool operator==(const Message&) const = default;
};

struct Outcome {
    std::string end;  // "" or the reason of the escape
    std::vector<Message> messages;
    bool operator==(const Outcome&) const = default;

    bool is_native() const {
        return !messages.empty() && std::ranges::all_of(messages, [](const Message& m) { return m.native; });
    }
};

tf_File record_file(std::string_view bytes) {
    im_Item item = im_CrNewDataItem();
    item.write(bytes);
    return tf_open(std::move(item));
}

void take_file(const ITEM_REF& ref, Message& message) {
    const std::string content = os_read_file(im_ItemRef2FName(ref), kFileLimit);
    if (std::string_view(ref.extension.data(), 4) != kTransferFile) {
        message.content.push_back(content);
        return;
    }
    tf_File file = record_file(content);
    tf_Record record;
    while (tf_ReadRecord(file, record)) {
        if (record.type() == TFREC_header && message.content.empty()) message.native = record.get16(20) == 1;
        const std::string bytes(record.bytes());
        tf_ChangeFromWrapRec(record);
        if (record.type() != TFREC_creation_date) message.content.push_back(bytes);
    }
}

Message take_message(const ITEM_REF& ref) {
    Message message;
    tf_File file = record_file(os_read_file(im_ItemRef2FName(ref), kFileLimit));
    tf_Record record;
    while (tf_ReadRecord(file, record))
        if (record.type() == TFREC_message_file) take_file(record.get_ref(16), message);
    return message;
}

Outcome convert(std::string_view text, bool convert_reports) {
    reset(convert_reports);
    Outcome outcome;
    const os_Fd input(::memfd_create("text", MFD_CLOEXEC));
    os_write_all(input.get(), text);
    ::lseek(input.get(), 0, SEEK_SET);
    ux_SetInput(input.get());
    ux_Input().begin_text();
    ux_InAddArpaRecipToList("<r@here>", "", false, false);
    ux_Envelope envelope{.pArpaSender = "<s@x.example>", .pEnvid = {}, .ROCWanted = true};
    try {
        ux_InConvUnixMsgToMorvane(envelope);
    } catch (const er_Escape& escape) {
        outcome.end = std::to_string(escape.group()) + "." + std::to_string(escape.reason());
    }
    ux_Input().drain_text();
    aud_AbortTransaction(ux_audit().AuditHandle);
    require(ux_mime_input().mimfp == nullptr && !ux_mime_input().gCopyForReport);
    const std::vector<Q_Entry> entries = Q_List("ROUTER");
    require(entries.size() == (outcome.end.empty() ? 1U : 0U));
    for (const Q_Entry& entry : entries) {
        for (const ITEM_REF& ref : entry.messages) outcome.messages.push_back(take_message(ref));
        Q_Remove("ROUTER", entry.name);
    }
    return outcome;
}

bool anything_is_left() {
    const std::filesystem::recursive_directory_iterator all(home_folder + "/data");
    return std::any_of(begin(all), end(all), [](const auto& entry) { return entry.is_regular_file(); });
}

std::string with_returns(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) out += '\r';
        out += text[i];
    }
    return out;
}

bool has_long_line(std::string_view text) {
    constexpr std::size_t is_long = 1000;
    while (text.size() > is_long) {
        const std::size_t end = text.substr(0, is_long).rfind('\n');
        if (end == std::string_view::npos) return true;
        text.remove_prefix(end + 1);
    }
    return false;
}

void check(const std::string& text) {
    const Outcome converted = convert(text, true), plain = convert(text, false);
    require(std::ranges::none_of(plain.messages, [](const Message& m) { return m.native; }));
    require(converted.end != "102.1412" && converted.end != "102.1427");
    if (converted.is_native()) {
        require(converted.messages.size() <= 2);
    } else {
        require(converted == plain);
    }
    // CR LF everywhere says nothing else than LF: only what is kept byte for byte keeps it. A line that fills a piece
    // is cut elsewhere with it.
    if (!has_long_line(text)) require(convert(with_returns(text), true).is_native() == converted.is_native());
}

constexpr const char* kTypes[] = {"; report-type=delivery-status", "; report-type=disposition-notification",
                                  "; report-type=\"DELIVERY-STATUS\"", "; report-type=other", ""};

}  // namespace

// The first byte chooses the kind of report, and whether the text is the whole message.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (home_folder.empty()) make_home();
    if (size < 1) return 0;
    const std::string_view body(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::size_t choice = data[0] % 8;
    std::string text;
    if (choice < std::size(kTypes))
        text = std::string("Subject: s\nMIME-Version: 1.0\nContent-Type: multipart/report; boundary=b") +
               kTypes[choice] + "\n\n";
    check(text.append(body).append("\n.\n"));
    static unsigned runs = 0;
    if (++runs % 64 == 0) require(!anything_is_left());
    return 0;
}
