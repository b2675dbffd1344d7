// Headers of messages inside messages: both kinds read the same lines and give the same distribution list; the records
// are a package, in which everything is wrapped but the content file of the list.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "aud/aud.h"
#include "er/er.h"
#include "fuzz_home.h"
#include "msg/msg.h"
#include "tf/file.h"
#include "ux_in/addresses.h"
#include "ux_in/identifiers.h"
#include "ux_in/part_info.h"
#include "ux_mimein/submessage_header.h"
#include "ux_uuin/submessage_header.h"

namespace {

struct Outcome {
    ux::EncapsulatedHeader header;
    std::string list;  // the bytes of the distribution list
    std::string rest;  // what is left of the text
};

std::string attached_list(Msg_File& MsgHandle, tf_File main) {
    constexpr std::size_t limit = std::size_t{64} << 20;
    MsgHandle.finish(std::move(main));
    im_Item item = im_CrNewDataItem();
    item.write(os_read_file(im_ItemRef2FName(MsgHandle.ref()), limit));
    tf_File message = tf_open(std::move(item));
    tf_Record record;
    ITEM_REF last;
    while (tf_ReadRecord(message, record))
        if (record.type() == TFREC_message_file) last = record.get_ref(16);
    return os_read_file(im_ItemRef2FName(last), limit);
}

void check_records(tf_File& file, const ux::EncapsulatedHeader& header) {
    tf_Record record;
    std::size_t count = 0;
    for (tf_UnreadFile(file); tf_ReadRecord(file, record); ++count) {
        if (count == 0) {
            require(record.type() == TFREC_start_package_type);
            continue;
        }
        if (record.type() == TFREC_content_file_type) break;
        require(record.type() == TFREC_wrapped);
        tf_ChangeFromWrapRec(record);
        require(count != 1 || record.type() == TFREC_header);
    }
    require(count >= 5 && record.type() == TFREC_content_file_type);  // header record, date, subject, saved header
    require(!tf_ReadRecord(file, record));
    tf_GotoRecord(file, header.pTfDistListPos);
    require(tf_ReadRecord(file, record) && record.type() == TFREC_content_file_type);
}

std::optional<Outcome> run(bool mime, std::string_view text) {
    ux_reset_identifiers();
    ux_reset_addresses();
    const FuzzText input(text);
    tf_File TfHandle = tf_CreateFile();
    Msg_File MsgHandle = Msg_CreateFile("");
    const ux::EncapsulatedHeaderTarget target{
        .TfHandle = TfHandle, .MsgHandle = MsgHandle, .encoding_limit = kEncodingListLimit};
    Outcome outcome;
    try {
        outcome.header = mime ? ux_MimInProcessSubMsgHdr(target) : ux_UUInProcessSubMsgHdr(target);
    } catch (const er_Escape& escape) {
        require(escape.group() == kGatewayGroup && escape.reason() == 1401 && MsgHandle.attached() == 0);
        return std::nullopt;
    }
    require(MsgHandle.attached() == 1);
    require(outcome.header.ppEncoding.size() <= kEncodingListLimit);
    require(outcome.header.pszSubPartType.size() < 1024 && outcome.header.pFullMIMEType.size() < 1024);
    require(outcome.header.nLinesRead <= std::ranges::count(text, '\n'));
    require(outcome.header.pEndOfMsg != ux_Input().text_open());
    check_records(TfHandle, outcome.header);
    outcome.list = attached_list(MsgHandle, std::move(TfHandle));
    while (ux_Input().text_open()) {
        const ux_MailText piece = ux_Input().text();
        if (!piece.is_end) outcome.rest.append(piece.text).append(piece.whole ? "\n" : "");
    }
    return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FuzzHome home("INET_LOCAL_DOMAINS = \"here\"\n");
    const std::string text = std::string(reinterpret_cast<const char*>(data), size) + "\n.\n";
    const std::optional<Outcome> mime = run(true, text), uu = run(false, text);
    require(mime.has_value() == uu.has_value());
    if (!mime) return 0;
    require(mime->list == uu->list && mime->rest == uu->rest);
    require(mime->header.nLinesRead == uu->header.nLinesRead && mime->header.pEndOfMsg == uu->header.pEndOfMsg);
    require(mime->header.ppEncoding == uu->header.ppEncoding);
    require(uu->header.pszSubPartType.empty() && uu->header.pFullMIMEType.empty());
    return 0;
}
