// Start-up and end of the gateway process: see startup.h.
#include "ux_in/startup.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>

#include "aud/aud.h"
#include "cust/cust.h"
#include "dr/dr.h"
#include "er/er.h"
#include "ext/ext.h"
#include "gcl/gcl.h"
#include "lng/lng.h"
#include "mim/mapping.h"
#include "ml/ml.h"
#include "os/catalog.h"
#include "os/os.h"
#include "ux_in/commands.h"
#include "ux_in/driver.h"
#include "ux_in/recipients.h"
#include "ux_in/replies.h"
#include "ux_in/session.h"
#include "ux_mimein/detection.h"

namespace {

constexpr int kCatalogSet = kGatewayGroup;
constexpr int kServerKind = 4;
constexpr int kMappingOn = 1540;
constexpr int kDefaultLogLevel = 7;
constexpr std::string_view kLogFile = "~/logs/gateway.log";
constexpr std::string_view kTrustFile = "~/sys/unixin.trust";
constexpr std::size_t kTrustFileLimit = std::size_t{16} << 20;
constexpr std::size_t kActualSenderLimit = 80;
constexpr std::size_t kTrustLineLimit = 81;

// The log file, opened with its first line. A line that cannot be written is lost; the mail is not.
void write_log(std::string_view line) {
    static const int file = ::open(os_HomePath(kLogFile).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0) return;
    [[maybe_unused]] const ssize_t written = ::write(file, line.data(), line.size());
}

// Lines wait until the process is who it shall be: the log belongs to the mail server.
void open_log() {
    er_SetTexts([](int set, int number) { return os_MCGetMessage(set, number); });
    er_SetSink(write_log);
}

// A descriptor that the invoker closed would be given to the next file that is opened, and replies or lines of some
// library be written into it. What takes its place says: no more input, nobody to reply to.
void hold_standard_descriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) != -1) continue;
        [[maybe_unused]] const int held = ::open("/dev/null", fd == STDERR_FILENO ? O_WRONLY : O_RDONLY);
    }
}

// Whose mail this is: nobody's in particular (empty) when root or a trusted user starts us, else the invoker's.
std::string actual_sender() {
    const uid_t user = ::getuid();
    if (user == 0) return {};
    const passwd* entry = ::getpwuid(user);
    if (entry == nullptr) return std::to_string(user);
    if (ux_InTrustedUser(entry->pw_name)) return {};
    return std::string(entry->pw_name).substr(0, kActualSenderLimit);
}

void open_directory() {
    try {
        ux_directory().DirHandle = dr_OpenDir();
    } catch (const er_Escape&) {
        er_Accept(5);
        ux_directory().DirHandle = 0;
        if (er_GetLive()) throw;
    }
}

// Holds the process so that a debugger can be attached; it never goes on by itself.
[[noreturn]] void wait_for_debugger() {
    for (;;) ::pause();
}

void configure_mapping() {
    ux_DirectoryState& directory = ux_directory();
    directory.MapConfigOn = mim_ChkMappingConfig("UXI_NAME_MAPPING", directory);
    if (directory.MapConfigOn) er_LogMsg(11, kGatewayGroup, kMappingOn, directory.MapDirName, directory.MapAttribId);
}

void close_directories() {
    ux_DirectoryState& directory = ux_directory();
    directory.MapDirHandle = mim_CloseMapDir(directory.MapDirHandle, directory.DirHandle);
    if (directory.DirHandle != 0) directory.DirHandle = dr_CloseDir(directory.DirHandle);
}

// The settings that the process itself runs with. What is wrong with the configuration is given back, not raised:
// there is no log yet to tell it.
std::exception_ptr configure_process() {
    try {
        ml_SetSSNiceValue(kServerKind);  // while the process may still raise its priority
        er_SetLevel(cust_GetInteger("LOG_LEVEL", kDefaultLogLevel));
    } catch (const er_Escape&) {
        return std::current_exception();
    }
    return nullptr;
}

// From the invoker to the mail server's account, with its log and its catalog.
void become_mail_server() {
    const std::exception_ptr misconfigured = configure_process();
    ext_SetUidToMorvane();
    os_MCOpen(kCatalogSet);
    open_log();
    if (misconfigured) std::rethrow_exception(misconfigured);
}

// From the invoker's identity to the last reply. Escapes go to the handler of last resort.
bool serve(bool system_chosen) {
    if (!system_chosen) gcl_setDefaultSystem();
    for (const int signal : {SIGINT, SIGQUIT, SIGPIPE, SIGXFSZ}) ext_signal(signal, 1);
    const std::string ActualSenderS = actual_sender();
    become_mail_server();
    open_directory();
    if (cust_PresentAndTrue("UXI_UUDECODE_DEBUG_LOOP")) wait_for_debugger();
    configure_mapping();
    if (cust_PresentAndTrue("UXI_NO_INET_OBJFILES")) ux_driver().GenObjFiles = false;
    const bool HadErrors = ux_InUnixToMorvaneMapper(ActualSenderS);
    close_directories();
    os_MCClose();
    return HadErrors;
}

// Only these reach the agent as they are; all else is a local error.
bool is_own_answer(int group, int reason) {
    return group == kGatewayGroup &&
           (reason == kReplyRefused || reason == kReplyEndOfText || reason == kReplyEndOfCommands);
}

// Answers the command in progress, and every further one, with the refusal until the agent quits or goes.
void refuse_until_quit(int MessNum) {
    ux_InWriteMailReply(MessNum);
    while (ux_InReadMailCommand().Type != kQuit) ux_InWriteMailReply(MessNum);
    ux_InWriteMailReply(kReplyClosing);
}

// The handler of last resort. The error stays live unless it is one of the gateway's own answers; the status is 1
// either way.
void last_resort() {
    int MessNum = er_GetReason();
    if (is_own_answer(er_GetGroup(), MessNum)) {
        er_Accept(5);
    } else {
        MessNum = kReplyLocalError;
        er_Accept(1);
    }
    er_TryIgnoring(close_directories);
    er_TryIgnoring([&] { refuse_until_quit(MessNum); });
    er_TryIgnoring([] { aud_AbortTransaction(ux_audit().AuditHandle); });
}

int run_session(bool system_chosen) {
    hold_standard_descriptors();
    er_Init("unix.in", kDefaultLogLevel);
    lng_InitNLS();
    aud_GetSetLogConfig(kServerKind);
    ::umask(0);
    bool HadErrors = false;
    try {
        er_Translate([&] { HadErrors = serve(system_chosen); });
    } catch (const er_Escape& escape) {
        if (os_Home().empty())
            std::fprintf(stderr, "unix.in: %s\n", escape.detail().c_str());  // there is no log either
        last_resort();
        return 1;
    }
    return HadErrors ? 1 : 0;
}

// -a: what the detector makes of a file. Somebody tries that out by hand, so the log is standard error.
int test_autodetect(const char* path) {
    er_Init("unix.in", kDefaultLogLevel);
    er_SetSink([](std::string_view line) { std::fwrite(line.data(), 1, line.size(), stderr); });
    try {
        const std::string data = os_read_file(path, std::size_t{1} << 30);
        const std::optional<std::string> Charset = ux_InAutodetectCharset(data);
        if (Charset)
            std::printf("Result from test autodetect charset: %s\n", Charset->c_str());
        else
            std::puts("No result from test autodetect charset.");
        return Charset ? 0 : 1;
    } catch (const er_Escape&) {
        er_Accept(5);
        std::puts("Warning logged for test autodetect charset.");
        return 2;
    }
}

// -s: chooses the instance, or says which there are.
bool choose_system(const char* name) {
    try {
        if (gcl_setSystemByName(name)) return true;
        ext_ReportWhichQnSystem();
    } catch (const er_Escape& escape) {
        std::fprintf(stderr, "unix.in: %s\n", escape.detail().c_str());
    }
    return false;
}

// The first word of a line, empty for a comment.
std::string_view trusted_name(std::string_view line) {
    const std::size_t first = line.find_first_not_of(" \t\n");
    if (first == std::string_view::npos || line[first] == '#') return {};
    line.remove_prefix(first);
    return line.substr(0, line.find_first_of(" \t\n"));
}

// Takes a line from the front of the text; a longer one than kTrustLineLimit comes in pieces.
std::string_view take_line(std::string_view& text) {
    const std::size_t line_feed = std::min(text.find('\n'), text.size() - 1);
    const std::string_view line = text.substr(0, std::min(line_feed + 1, kTrustLineLimit));
    text.remove_prefix(line.size());
    return line;
}

}  // namespace

int ux_InMain(int argc, char** argv) {
    bool system_chosen = false;
    ::opterr = 0;
    for (int option = 0; (option = ::getopt(argc, argv, "s:a:")) != -1;) {
        if (option == 'a') return test_autodetect(::optarg);
        if (option != 's') continue;
        if (!choose_system(::optarg)) return 1;
        system_chosen = true;
    }
    return run_session(system_chosen);
}

bool ux_InTrustedUser(std::string_view pUserName) {
    const er_Trace trace("ux_InTrustedUser");
    bool trusted = false;
    er_TryIgnoring([&] {
        const std::string file = os_read_file(kTrustFile, kTrustFileLimit);
        for (std::string_view rest = file; !rest.empty() && !trusted;)
            trusted = trusted_name(take_line(rest)) == pUserName;
    });
    return trusted && !pUserName.empty();
}

void ux_InSigPipeTrap(int) { er_SystemEscape(EPIPE, "broken pipe"); }
