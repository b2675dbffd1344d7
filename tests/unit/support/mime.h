// MIME text converted as the driver has it done, and what came of it: records as lines of text, the attached items.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "cvr/cvr.h"
#include "mim/content_type.h"
#include "os/os.h"
#include "support/home.h"
#include "support/message_text.h"
#include "tf/record.h"
#include "ux_in/charsets.h"
#include "ux_mimein/entity.h"
#include "ux_mimein/mail_input.h"
#include "ux_mimein/mime_part.h"
#include "ux_mimein/subjects.h"

namespace mime_detail {

inline void add(std::string& line, std::string_view label, std::string_view value) {
    if (!value.empty()) line.append(" ").append(label).append("[").append(value).append("]");
}

inline std::string content(const tf_Record& record) {
    const TFREC_content_file file = tf_ContentFileRecToStruc(record);
    std::string line = " " + std::to_string(file.contentType);
    if (file.origContentType != file.contentType) line += "/" + std::to_string(file.origContentType);
    add(line, "set", file.pContentCharset);
    line += " " + std::to_string(file.fileSize);
    if (file.contentFlags != 0) line += " flags " + std::to_string(file.contentFlags);
    add(line, "type", file.pMIMEContentType);
    add(line, "disp", file.pContentDisp);
    add(line, "id", file.pContentID);
    add(line, "at", file.pContentLocation);
    add(line, "file", file.pOrigFileName);
    add(line, "subject", file.rfc2047subject);
    return line;
}

inline std::string package(const tf_Record& record) {
    const TFREC_start_package package = tf_ST_PKG_to_Struc(record);
    std::string line = " " + std::to_string(package.pkgType) + "," + std::to_string(package.qnPkgType);
    if (package.pkgFlags != 0) line += " flags " + std::to_string(package.pkgFlags);
    add(line, "type", package.pMIMEContentType);
    add(line, "subject", package.rfc2047subject);
    return line;
}

inline std::string shown(const tf_Record& record, std::size_t at = 0) {
    std::string line = std::to_string(record.get32(at + 4));
    switch (record.get32(at + 4)) {
        case TFREC_content_file_type: return line + content(record);
        case TFREC_start_package_type: return line + package(record);
        case TFREC_object_file: {
            const std::string_view name = record.get_string(at + 24);
            return line + " " + std::to_string(record.get32(at + 16)) + " " + std::string(name) + " " +
                   std::to_string(record.get32(at + 20));
        }
        case TFREC_file_creation_date:
        case TFREC_file_modification_date:
            return line + " " + std::to_string(record.get32(at + 16)) + " " + std::to_string(record.get16(at + 20));
        case TFREC_wrapped: return line + " " + shown(record, at + 16);
        default: return line;
    }
}

}  // namespace mime_detail

struct ConvertedMime {
    std::vector<std::string> records;  // of the transfer file, object files of content headers left out
    std::vector<std::string> objects;  // those
    std::vector<std::string> items;    // contents of the attached files
    bool end_read = false;             // the end line of the message
    bool last_read = false;            // the closing line of what encloses the entity
};

// A process that has begun a session, in a home of its own.
class MimeProcess {
public:
    explicit MimeProcess(std::string_view keys = {}) : home(keys) { restart(); }
    ~MimeProcess() { reset(); }

    // A new process in the same home, whose files may have changed.
    void restart() {
        reset();
        ux_InGetDefaultCharsets();
    }
    void restart_with(std::string_view keys) {
        home.set_keys(keys);
        restart();
    }

    // Converts one message's body: `part` says what its header does, `text` is what follows, the end line included.
    ConvertedMime convert(ux_MimePart part, std::string_view text) {
        ConvertedMime made;
        const MessageText input(text);
        ux_begin_mime_message();
        tf_File records = tf_CreateFile();
        Msg_File message = Msg_CreateFile("");
        std::int16_t ack = 0;
        bool reply = false;
        ux_MimeConversion conversion{.TfHandle = records,
                                     .MsgHandle = message,
                                     .pbEndOfMsg = made.end_read,
                                     .GenObjFiles = GenObjFiles,
                                     .pAckReq = ack,
                                     .pReplyReq = reply};
        part.pRfc2047subject = "S";
        part.pbLastPart = &made.last_read;
        ux_InParseMimeContent(conversion, part);
        show(records, made);
        std::vector<ITEM_REF> files;
        message.list_files(files);
        for (std::size_t at = 2; at < files.size(); ++at)  // behind the message file and the main transfer file
            made.items.push_back(os_read_file(im_ItemRef2FName(files[at]), std::size_t{64} << 20));
        return made;
    }
    ConvertedMime convert(std::string_view content_type, std::string_view text) {
        ux_MimePart part;
        part.header.pszSubPartType = content_type;
        part.bInImmediateMsg = true;
        part.AtTopLevel = true;
        return convert(std::move(part), text);
    }

    TestHome home;
    bool GenObjFiles = true;

private:
    static void reset() {
        cvr_TidyUp();
        ux_reset_charsets();
        ux_reset_subjects();
        ux_reset_mime_input();
        ux_reset_mime_state();
        mim_reset_types();
    }
    static void show(tf_File& records, ConvertedMime& made) {
        tf_Record record;
        for (tf_UnreadFile(records); tf_ReadRecord(records, record);) {
            std::string line = mime_detail::shown(record);
            const bool object = line.find("30700 ") != std::string::npos;
            (object ? made.objects : made.records).push_back(std::move(line));
        }
    }
};
