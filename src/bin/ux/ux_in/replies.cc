// Replies: see replies.h.
#include "ux_in/replies.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>

#include "er/er.h"
#include "os/catalog.h"
#include "os/os.h"

namespace {

constexpr std::size_t kReplyLimit = 2049;
constexpr std::size_t kHostNameSize = 64;
constexpr int kWriteFailed = 1024;
constexpr int kReplyWritten = 1504;

// What can be said without a catalog.
std::string fallback(int MessNum) {
    if (MessNum == kReplyClosing) return "221 Closing connection\n";
    const char* lang = std::getenv("LANG");
    const std::string folder = ext_langtodir(lang == nullptr ? "" : lang);
    return er_Format("451 QN.UX Gateway on '%s': Error accessing '%s' catalog\n",
                     {os_gethostname(kHostNameSize), folder});
}

std::string reply_text(int MessNum) {
    const std::string_view text = os_MCGetMessage(MessNum);
    if (text.empty()) return fallback(MessNum);
    if (text.front() == '4' || text.front() == '5') return er_Format(text, {os_gethostname(kHostNameSize)});
    return std::string(text);
}

// Nothing is retried but what a signal or a full non-blocking socket held up.
bool write_whole(std::string_view reply) {
    while (!reply.empty()) {
        const ssize_t written = ::write(STDOUT_FILENO, reply.data(), reply.size());
        if (written > 0) {
            reply.remove_prefix(static_cast<std::size_t>(written));
        } else if (written < 0 && errno == EAGAIN) {
            pollfd ready{STDOUT_FILENO, POLLOUT, 0};
            ::poll(&ready, 1, -1);
        } else if (written == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace

void ux_InWriteMailReply(int MessNum) {
    const er_Trace trace("ux_InWriteMailReply");
    std::string reply = reply_text(MessNum);
    if (reply.size() > kReplyLimit) reply.resize(kReplyLimit);
    if (reply.find('\n') == std::string::npos) reply += '\n';
    if (!write_whole(reply)) er_TracedEscape(kGatewayGroup, kWriteFailed);
    if (reply.ends_with('\n')) reply.pop_back();
    er_LogMsg(11, kGatewayGroup, kReplyWritten, reply);
}
