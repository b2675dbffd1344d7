// RFC 1154 bodies: the first line is the list, the rest the body. Every file has its record, packages are closed, text
// is what lies in the body, and nothing is read behind the end line.
#include <cstdint>
#include <string>
#include <string_view>

#include "er/er.h"
#include "fuzz_home.h"
#include "msg/msg.h"
#include "tf/file.h"
#include "ux_in/addresses.h"
#include "ux_in/charsets.h"
#include "ux_in/identifiers.h"
#include "ux_uuin/rfc1154.h"

namespace {

constexpr std::string_view kBehind = "behind the end line\n";

void check_records(tf_File& file, std::size_t files) {
    tf_Record record;
    std::size_t contents = 0, open = 0;
    for (tf_UnreadFile(file); tf_ReadRecord(file, record);) {
        if (record.type() == TFREC_content_file_type) ++contents;
        if (record.type() == TFREC_start_package_type) ++open;
        require(record.type() != TFREC_wrapped || open > 0);
        if (record.type() != TFREC_end_package) continue;
        require(open > 0);
        --open;
    }
    require(contents == files && open == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FuzzHome home("UX_MAX_DEPTH = 5\n");
    if (ux_charsets().FromCharSet.empty()) {
        ux_charsets().FromCharSet = "ISO8859_1";
        ux_charsets().ToLatinCS = "ISO8859_1";
    }
    ux_reset_identifiers();
    ux_reset_addresses();
    const std::string_view whole(reinterpret_cast<const char*>(data), size);
    const std::string list(whole.substr(0, whole.find('\n')));
    std::string text(whole.substr(std::min(list.size() + 1, whole.size())));
    const FuzzText input(text.append("\n.\n").append(kBehind));

    tf_File TfHandle = tf_CreateFile();
    Msg_File MsgHandle = Msg_CreateFile("");
    bool EndOfMsg = false;
    ux_InParseRfc1154Content({.TfHandle = TfHandle,
                              .pRfc2047subject = "s",
                              .pFromCharSet = ux_charsets().FromCharSet,
                              .pEncoding = list,
                              .MsgHandle = MsgHandle,
                              .pEndOfMsg = EndOfMsg});
    require(EndOfMsg != ux_Input().text_open());
    while (ux_Input().text_open()) ux_Input().text();
    check_records(TfHandle, MsgHandle.attached());
    if (text.find("\n.\n") == text.size() - kBehind.size() - 3 && text.find(".\n") != 0 &&
        text.find("\r") == std::string::npos) {
        ux_Input().begin_text();
        require(ux_Input().text().text == kBehind.substr(0, kBehind.size() - 1));
    }
    return 0;
}
