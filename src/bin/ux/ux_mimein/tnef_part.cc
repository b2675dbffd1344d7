// TNEF parts: see tnef_part.h.
#include "ux_mimein/tnef_part.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>

#include "cl/mail_node.h"
#include "cust/cust.h"
#include "dstring/ascii.h"
#include "er/er.h"
#include "os/os.h"
#include "tnef/decode.h"
#include "ux_in/recipients.h"

namespace {

constexpr int kNotInBase64 = 1545;
constexpr int kDamagedTnef = 1428;
constexpr std::int32_t kPlainText = 1167;
constexpr std::string_view kDamagedType = "text/plain;name=\"winmail.txt\"";
constexpr std::string_view kDamagedName = "winmail.txt";
constexpr std::size_t kAddressLists = 1;  // number of the attached file that holds them
constexpr std::size_t kBlock = std::size_t{64} << 10;

int& tnefSaveFileNum() {
    static int number = 0;
    return number;
}

void save_copy(const im_Item& item) {
    const std::string path =
        "~/tmp/unix.in-" + std::to_string(::getpid()) + "-" + std::to_string(++tnefSaveFileNum()) + ".TNEF";
    const os_Fd file = os_open(path, O_WRONLY | O_CREAT | O_TRUNC, 0400);
    const auto block = std::make_unique_for_overwrite<char[]>(kBlock);
    for (std::uint64_t at = 0; at < item.size();) {
        const std::size_t got = item.read(at, block.get(), kBlock);
        os_write_all(file.get(), std::string_view(block.get(), got));
        at += got;
    }
}

// The address lists are the message's first attached file; they are rewritten where they are.
void update_lists(ux_MimeConversion& conversion, const im_Item& stream) {
    im_Item lists = im_open(Msg_GetFile(conversion.MsgHandle, kAddressLists));
    tnef_UpdateDL(lists, stream, ux_directory());
    lists.place();
}

void keep_as_text(ux_LeafPart& leaf) {
    leaf.lQNFileCode = kPlainText;
    leaf.pszMIMEContentType = kDamagedType;
    leaf.pOrigFileName = leaf.rfc2047subject = kDamagedName;
}

}  // namespace

bool ux::is_expanded_tnef(const ux_MimePart& entity, const ux_LeafPart& leaf) {
    if (!entity.AtTopLevel || leaf.lQNFileCode != kTnefCode) return false;
    const std::string& encoding = entity.header.pszSubPartEncoding;
    if (!encoding.empty() && !dstring_equal_ignoring_case(encoding, "base64"))
        er_LogMsg(5, kGatewayGroup, kNotInBase64, encoding, leaf.rfc2047subject);
    return true;
}

bool ux::expand_tnef(ux_MimeConversion& conversion, ux_LeafPart& leaf) {
    constexpr bool SplitTNEF = false;  // the key UX_SPLIT_TNEF of old configurations has no effect
    const bool update_flag = cl_ReadDefMNode(kTnefNode).update_lists != 0;
    if (cust_GetBoolean("UXI_SAVE_INCOMING_TNEF", false)) save_copy(leaf.item);
    try {
        tnef_Decode(conversion.MsgHandle, conversion.TfHandle, leaf.item, conversion.pAckReq, conversion.pReplyReq,
                    update_flag, SplitTNEF);
    } catch (const er_Escape& escape) {
        if (escape.group() != kSystemGroup || escape.reason() != EBADMSG) throw;
        er_Accept(5);
        if (cust_PresentAndTrue("UXI_NON_DELIVER_BAD_TNEF")) er_TracedEscape(kGatewayGroup, kDamagedTnef, "TNEF part");
        keep_as_text(leaf);
        return false;
    }
    // A message inside this one has lists of its own, which are not at hand.
    if (update_flag && ux_mime_state().msgNestLevel == 0) update_lists(conversion, leaf.item);
    leaf.item.unlink();
    return true;
}

void ux_reset_tnef_parts() { tnefSaveFileNum() = 0; }
