// Conversions of MIME bodies for fuzz targets: the converter alone, on a text that is read from anywhere, and what came
// of it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "er/er.h"
#include "fuzz_home.h"
#include "im/im.h"
#include "os/os.h"
#include "tf/record.h"
#include "ux_in/charsets.h"
#include "ux_in/lines.h"
#include "ux_mimein/entity.h"
#include "ux_mimein/mail_input.h"
#include "ux_mimein/mime_part.h"
#include "ux_mimein/subjects.h"

namespace mime_room {

inline constexpr std::size_t kFileLimit = std::size_t{256} << 20;

// What came of a body: how it ended, its records, its attached files.
struct Outcome {
    int refused = 0;
    bool end_read = false;
    std::vector<std::string> records;
    std::vector<std::string> files;
    std::vector<TFREC_content_file> described;  // the content-file records among the records
    bool operator==(const Outcome& other) const {
        return refused == other.refused && end_read == other.end_read && records == other.records &&
               files == other.files;
    }
};

inline bool is_date_of_now(const tf_Record& record) {
    return record.type() == TFREC_wrapped && record.get32(16 + 4) == TFREC_creation_date;
}

// Packages and groups of alternatives nest, and the k-th content file is the k-th file.
inline void check_records(tf_File& records, const std::vector<std::string>& files, Outcome& outcome) {
    std::vector<std::int32_t> open;
    tf_Record record;
    for (tf_UnreadFile(records); tf_ReadRecord(records, record);) {
        switch (record.type()) {
            case TFREC_start_package_type: open.push_back(TFREC_end_package); break;
            case TFREC_start_alternatives: open.push_back(TFREC_end_alternatives); break;
            case TFREC_end_package:
            case TFREC_end_alternatives:
                require(!open.empty() && open.back() == record.type());
                open.pop_back();
                break;
            case TFREC_content_file_type: {
                const TFREC_content_file file = tf_ContentFileRecToStruc(record);
                require(outcome.described.size() < files.size());
                const std::string& content = files[outcome.described.size()];
                require(file.contentType == 1166 || file.fileSize == static_cast<std::int32_t>(content.size()));
                require(file.pContentDisp.size() <= 20 && file.pMIMEContentType.size() < 1100);
                outcome.described.push_back(file);
                break;
            }
            default: break;
        }
        if (!is_date_of_now(record)) outcome.records.emplace_back(record.bytes());
    }
    require(open.empty() && outcome.described.size() == files.size());
}

// Hands a text out in pieces of one size.
inline ux_LineReader reader_of(std::string_view text, std::size_t piece) {
    return ux_LineReader([text, piece](char* data, std::size_t room) mutable {
        const std::size_t count = std::min({piece, room, text.size()});
        if (count != 0) std::memcpy(data, text.data(), count);
        text.remove_prefix(count);
        return count;
    });
}

// The body of a message of this content type, which the reader gives.
inline Outcome convert(std::string_view type, ux_LineReader& reader, char detection, bool smime_v2 = false) {
    ux_reset_subjects();
    ux_reset_mime_state();
    ux_mime_state().smime_v2 = smime_v2;
    ux_charsets().DoCSAutoDetect = detection;
    reader.begin_text();
    ux_begin_mime_message();
    ux_mime_input().mimfp = &reader;

    Outcome outcome;
    tf_File records = tf_CreateFile();
    Msg_File message = Msg_CreateFile("");
    std::int16_t ack = 0;
    bool reply = false, last = false;
    ux_MimeConversion conversion{
        .TfHandle = records, .MsgHandle = message, .pbEndOfMsg = outcome.end_read, .pAckReq = ack, .pReplyReq = reply};
    ux_MimePart part;
    part.pRfc2047subject = "Subject";
    part.header.pszSubPartType = type;
    part.bInImmediateMsg = true;
    part.AtTopLevel = true;
    part.pbLastPart = &last;
    try {
        ux_InParseMimeContent(conversion, part);
    } catch (const er_Escape& escape) {
        require(escape.group() == kGatewayGroup && (escape.reason() == 1401 || escape.reason() == 1428));
        outcome.refused = escape.reason();
    }
    ux_mime_input().mimfp = nullptr;
    if (outcome.refused != 0) return outcome;
    require(outcome.end_read != reader.text_open());
    std::vector<ITEM_REF> files;
    message.list_files(files);
    for (std::size_t at = 2; at < files.size(); ++at) {  // behind the message file and the main transfer file
        const bool list = std::string_view(files[at].extension.data(), 4) == kTransferFile;
        outcome.files.push_back(list ? "" : os_read_file(im_ItemRef2FName(files[at]), kFileLimit));
    }
    const std::vector<std::string> attached = outcome.files;
    check_records(records, attached, outcome);
    return outcome;
}

}  // namespace mime_room
