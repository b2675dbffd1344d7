// Commands: see commands.h.
#include "ux_in/commands.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdint>

#include "er/er.h"
#include "nm/nm.h"
#include "os/os.h"
#include "ux_in/lines.h"

namespace {

struct SMTP_Command {
    std::string_view SMTPCommand;  // four letters
    std::string_view Parameter;    // second word that must follow, before a colon
    short MaxNumArg;               // 1: takes an argument
    int Type;
};

// Searched in order; only four letters are compared, so that the fifth character decides afterwards.
constexpr auto AvaCommand = std::to_array<SMTP_Command>({
    {"HELO", "", 1, kHelo},
    {"MAIL", "FROM", 1, kMailFrom},
    {"RCPT", "TO", 1, kRcptTo},
    {"DATA", "", 0, kData},
    {"QUIT", "", 0, kQuit},
    {"RSET", "", 0, kRset},
    {"NOOP", "", 0, kNoop},
    {"EHLO", "", 1, kEhlo},
});

constexpr int kCommandReceived = 1503;
constexpr off_t kDelimiterAt = 476;
constexpr int kDelimiterUnreadable = 1420;
constexpr int kDelimiterUnreachable = 1421;

constexpr char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// Does `text` begin with `word` (upper case), whatever its case?
constexpr bool begins_with(std::string_view text, std::string_view word) {
    if (text.size() < word.size()) return false;
    for (std::size_t i = 0; i < word.size(); ++i)
        if (upper(text[i]) != word[i]) return false;
    return true;
}

constexpr std::string_view skip_blanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    return first == std::string_view::npos ? std::string_view{} : text.substr(first);
}

// keyword [blanks] ":" [blanks] argument
ux_MailCommand classify_path(const SMTP_Command& row, std::string_view rest) {
    rest = skip_blanks(rest);
    if (!begins_with(rest, row.Parameter)) return {};
    rest = skip_blanks(rest.substr(row.Parameter.size()));
    if (!rest.starts_with(':')) return {};
    return {row.Type, skip_blanks(rest.substr(1))};
}

ux_MailCommand classify_row(const SMTP_Command& row, std::string_view rest) {
    if (!row.Parameter.empty()) return classify_path(row, rest);
    if (row.MaxNumArg == 0) return skip_blanks(rest).empty() ? ux_MailCommand{row.Type, {}} : ux_MailCommand{};
    if (!rest.empty() && rest.front() != ' ' && rest.front() != '\t') return {};
    return {row.Type, skip_blanks(rest)};
}

}  // namespace

ux_MailCommand ux_InReadMailCommand() {
    const er_Trace trace("ux_InReadMailCommand");
    const ux_CommandLine line = ux_Input().command();
    er_LogMsg(11, kGatewayGroup, kCommandReceived, line.text);
    return line.too_long ? ux_MailCommand{} : ux_InGetSMTPCommand(line.text);
}

ux_MailCommand ux_InGetSMTPCommand(std::string_view pCommandLine) {
    const er_Trace trace("ux_InGetSMTPCommand");
    for (const SMTP_Command& row : AvaCommand)
        if (begins_with(pCommandLine, row.SMTPCommand))
            return classify_row(row, pCommandLine.substr(row.SMTPCommand.size()));
    return {};
}

ux_KeywordLine ux_InParseCommandLine(std::string_view pInputBuff) {
    const er_Trace trace("ux_InParseCommandLine");
    std::string_view text = pInputBuff.substr(0, pInputBuff.find('\n'));
    text = text.substr(0, text.find('\0'));
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return {false, text, {}};
    return {true, text.substr(0, colon), text.substr(colon + 1)};
}

void ux_InSetDelimChars() {
    const er_Trace trace("ux_InSetDelimChars");
    const os_Fd config = os_open("~/sys/config", O_RDONLY);
    if (::lseek(config.get(), kDelimiterAt, SEEK_SET) == -1)
        er_TracedEscape(kGatewayGroup, kDelimiterUnreachable, "~/sys/config");
    std::uint16_t value = 0;
    if (::read(config.get(), &value, sizeof value) != sizeof value)
        er_TracedEscape(kGatewayGroup, kDelimiterUnreadable, "~/sys/config");
    const auto low = static_cast<char>(value & 0xFF);
    nm_state().inet_PrimDelim = low == '\0' ? '/' : low;
}
