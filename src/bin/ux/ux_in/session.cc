// The dialogue: see session.h. The state machine is a table of actions by command code.
#include "ux_in/session.h"

#include <array>

#include "er/er.h"
#include "os/os.h"
#include "q/q.h"
#include "ux_in/charsets.h"
#include "ux_in/commands.h"
#include "ux_in/driver.h"
#include "ux_in/envelope.h"
#include "ux_in/lines.h"
#include "ux_in/recipients.h"
#include "ux_in/replies.h"

namespace {

constexpr int kSessionStarted = 1501;
constexpr int kSessionEnded = 1502;
constexpr int kRecipientAccepted = 1505;
constexpr int kLoopDropped = 1544;

// Puts "@host" into a path that names no host: before its first ">", or at its end. The result has `limit` characters
// at most.
void qualify(std::string& path, std::size_t limit) {
    if (path.find('@') != std::string::npos) return;
    const std::size_t bracket = path.find('>');
    if (bracket == std::string::npos)
        path += '@' + localHostName();
    else
        path.replace(bracket, 1, '@' + localHostName() + '>');
    if (path.size() > limit) path.resize(limit);
}

bool is_null_path(std::string_view path) { return path.find("<>") != std::string_view::npos; }

class Session {
public:
    explicit Session(std::string_view actual_sender) : actual_sender_(actual_sender) {}
    bool run();

private:
    // An action returns the reply that answers its command.
    using Action = int (Session::*)(std::string_view argument);
    static const std::array<Action, kEhlo + 1> kActions;

    int hello(std::string_view) { return kReplyHello; }
    int extended_hello(std::string_view) { return kReplyNoExtendedHello; }  // the agent falls back to HELO
    int noop(std::string_view) { return kReplyOk; }
    int mail_from(std::string_view argument);
    int rcpt_to(std::string_view argument);
    int data(std::string_view);
    int reset(std::string_view);
    int quit(std::string_view);

    int error(int reply);
    void convert();
    void end_transaction();

    std::string_view actual_sender_;
    bool HaveSender_ = false;
    bool HaveRecip_ = false;
    bool Finished_ = false;
    bool HadErrors_ = false;
    // Of the session, not of one message: a message without RET or ENVID inherits those of the one before.
    ux_MailFrom sender_;
};

const std::array<Session::Action, kEhlo + 1> Session::kActions = [] {
    std::array<Action, kEhlo + 1> actions{};
    actions[kHelo] = &Session::hello;
    actions[kMailFrom] = &Session::mail_from;
    actions[kRcptTo] = &Session::rcpt_to;
    actions[kData] = &Session::data;
    actions[kQuit] = &Session::quit;
    actions[kRset] = &Session::reset;
    actions[kNoop] = &Session::noop;
    actions[kEhlo] = &Session::extended_hello;
    return actions;
}();

bool Session::run() {
    while (!Finished_) {
        const ux_MailCommand command = ux_InReadMailCommand();
        if (command.Type == kNotRecognised) {
            ux_InWriteMailReply(error(kReplyNotRecognised));
            continue;
        }
        const int reply = (this->*kActions[static_cast<std::size_t>(command.Type)])(command.pArgument);
        if (!Finished_) ux_InWriteMailReply(reply);
    }
    return HadErrors_;
}

int Session::error(int reply) {
    HadErrors_ = true;
    return reply;
}

// Recipients that were accepted already are kept: a second MAIL FROM only changes the sender.
int Session::mail_from(std::string_view argument) {
    ux_InParseMAILFROM(argument, sender_);
    if (!actual_sender_.empty()) sender_.ArpaSender = actual_sender_;
    if (!is_null_path(sender_.ArpaSender)) qualify(sender_.ArpaSender, kArpaSenderLimit);
    HaveSender_ = true;
    return kReplyOk;
}

int Session::rcpt_to(std::string_view argument) {
    if (!HaveSender_) return error(kReplyBadSequence);
    ux_RcptTo recipient;
    ux_InParseRCPTTO(argument, recipient);
    qualify(recipient.ArpaORName, kArpaORNameLimit);
    ux_InAddArpaRecipToList(recipient.ArpaORName, recipient.OrigRcpt, recipient.NoNDNWanted, recipient.DelAckWanted);
    HaveRecip_ = true;
    er_LogMsg(9, kGatewayGroup, kRecipientAccepted, recipient.ArpaORName);
    return kReplyOk;
}

int Session::data(std::string_view) {
    if (!HaveSender_ || !HaveRecip_) return error(kReplyBadSequence);
    ux_Input().begin_text();
    ux_InWriteMailReply(kReplyStartInput);
    convert();
    end_transaction();
    return kReplyOk;
}

// A refused text is read to its end before the refusal travels on: it must not be answered as commands, and an agent
// that writes it all before it reads must not block.
void Session::convert() {
    ux_Envelope envelope{sender_.ArpaSender, sender_.Envid, sender_.ROCWanted};
    try {
        er_Translate([&] { ux_InConvUnixMsgToMorvane(envelope); });
    } catch (const er_Escape& escape) {
        ux_Input().drain_text();
        if (escape.group() == kGatewayGroup && escape.reason() == kLoopDropped) er_Accept(5);
        if (er_GetLive()) throw;
    }
}

void Session::end_transaction() {
    HaveSender_ = HaveRecip_ = false;
    ux_InFreeRecipList();
}

int Session::reset(std::string_view) {
    end_transaction();
    return kReplyOk;
}

int Session::quit(std::string_view) {
    end_transaction();
    Finished_ = true;
    return kReplyClosing;
}

}  // namespace

const std::string& localHostName() { return os_canonical_host_name(); }

bool ux_InUnixToMorvaneMapper(std::string_view pActualSender) {
    const er_Trace trace("ux_InUnixToMorvaneMapper");
    ux_InGetDefaultCharsets();
    ux_InSetDelimChars();
    ux_InWriteMailReply(kReplyGreeting);
    er_LogMsg(11, kGatewayGroup, kSessionStarted);
    const bool HadErrors = Session(pActualSender).run();
    Q_CloseQueues();
    er_LogMsg(11, kGatewayGroup, kSessionEnded);
    ux_InWriteMailReply(kReplyClosing);
    return HadErrors;
}
