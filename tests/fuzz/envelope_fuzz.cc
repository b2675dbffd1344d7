// Arguments of MAIL FROM and RCPT TO: bounds hold, every word is taken, and what is not named keeps its value.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "ux_in/envelope.h"

namespace {

void require(bool held) {
    if (!held) std::abort();
}

void check_path(std::string_view arguments, std::string_view path, std::size_t limit) {
    require(path.size() <= limit && arguments.starts_with(path));
    const std::size_t bracket = arguments.find('>');
    const std::size_t whole = bracket == arguments.npos ? arguments.size() : bracket + 1;
    require(path.size() == std::min(whole, limit));
}

void check_tokens(std::string_view text) {
    const char* const end = text.data() + text.size();
    while (true) {
        const std::size_t before = text.size();
        const auto parameter = ux_InGetNextToken(text);
        require(text.data() + text.size() == end);
        if (!parameter) return;
        require(text.size() < before);
        require(parameter->Tag.size() <= kEnvelopeTagLimit && parameter->Value.size() <= kEnvelopeValueLimit);
        require(parameter->Tag.find_first_of(" =") == std::string_view::npos);
        require(parameter->Value.find(' ') == std::string_view::npos);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view arguments(reinterpret_cast<const char*>(data), size);
    const std::size_t path = std::min(arguments.find('>'), size);
    check_tokens(arguments.substr(path));

    ux_MailFrom sender{.Envid = "kept"};
    ux_InParseMAILFROM(arguments, sender);
    check_path(arguments, sender.ArpaSender, kArpaSenderLimit);
    require(sender.Envid.size() <= kEnvidLimit);

    ux_RcptTo recipient{.OrigRcpt = "kept"};
    ux_InParseRCPTTO(arguments, recipient);
    check_path(arguments, recipient.ArpaORName, kArpaORNameLimit);
    require(recipient.OrigRcpt.size() <= kOrigRcptLimit);

    if (arguments.substr(path).find('=') == std::string_view::npos) {
        require(sender.Envid == "kept" && sender.ROCWanted);
        require(recipient.OrigRcpt == "kept" && !recipient.NoNDNWanted && !recipient.DelAckWanted);
    }
    ux_RcptTo again = recipient;
    ux_InParseRCPTTO(arguments, again);
    require(again.OrigRcpt == recipient.OrigRcpt);
    return 0;
}
