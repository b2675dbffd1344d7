// A TNEF stream expanded, and what came of it as lines of text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "er/er.h"
#include "msg/msg.h"
#include "tf/file.h"
#include "tf/record.h"
#include "tnef/decode.h"

struct Expanded {
    std::vector<std::string> records;  // one line each; of an object and of properties only what they are
    std::vector<std::string> objects;  // the streams of the objects
    std::vector<std::string> texts;    // the property texts
    std::vector<TFREC_content_file> files;
    std::vector<std::string> items;  // contents, in the order of the attached files
    std::int16_t ack = 0;
    bool reply = false;
    int failure = 0;  // the reason of the escape
};

namespace tnef_expanded {

inline std::string line_of(const tf_Record& record, Expanded& out) {
    const std::string type = std::to_string(record.type());
    switch (record.type()) {
        case TFREC_wrapped: {
            tf_Record inner = record;
            tf_ChangeFromWrapRec(inner);
            return "wrapped " + line_of(inner, out);
        }
        case TFREC_item_class: return type + ' ' + std::string(record.get_string(16));
        case TFREC_object_file: {
            const std::string_view name = record.get_string(24);
            out.objects.emplace_back(record.bytes().substr(24 + name.size() + 1));
            if (out.objects.back().size() != static_cast<std::uint32_t>(record.get32(20))) return "a wrong length";
            return type + ' ' + std::string(name) + ' ' + std::to_string(record.get32(16));
        }
        case TFREC_mapi_properties:
            out.texts.emplace_back(record.get_string(26));
            return type + ' ' + std::to_string(record.get32(16)) + ' ' + std::to_string(record.get32(20)) + ' ' +
                   std::to_string(record.get16(24));
        case TFREC_start_package_type: {
            const TFREC_start_package package = tf_ST_PKG_to_Struc(record);
            return type + ' ' + std::to_string(package.pkgType) + ' ' + std::to_string(package.qnPkgType) + " [" +
                   package.rfc2047subject + ']';
        }
        case TFREC_content_file_type: {
            out.files.push_back(tf_ContentFileRecToStruc(record));
            const TFREC_content_file& file = out.files.back();
            return type + ' ' + std::to_string(file.contentType) + ' ' + std::to_string(file.fileSize) + " [" +
                   file.rfc2047subject + ']';
        }
        default: return type;
    }
}

}  // namespace tnef_expanded

// Expands a stream behind one record that was there before. Raises what is not a damaged stream.
inline Expanded expand(std::string_view stream) {
    Expanded out;
    im_Item item = im_CrNewDataItem();
    item.write(stream);
    Msg_File message = Msg_CreateFile("");
    tf_File file = tf_CreateFile();
    file.append(tf_Record(TFREC_end_alternatives));
    try {
        tnef_Decode(message, file, item, out.ack, out.reply, false, false);
    } catch (const er_Escape& escape) {
        out.failure = escape.reason();
    }
    tf_Record record;
    tf_UnreadFile(file);
    while (tf_ReadRecord(file, record)) out.records.push_back(tnef_expanded::line_of(record, out));
    out.records.erase(out.records.begin());
    std::vector<ITEM_REF> refs;
    message.list_files(refs);
    for (std::size_t i = 2; i < refs.size(); ++i)
        out.items.push_back(os_read_file(im_ItemRef2FName(refs[i]), std::size_t{1} << 30));
    return out;
}
