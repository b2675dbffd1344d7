// Records as lines of text, type first, then the fields that say something: what a test compares and what a failure
// prints.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tf/file.h"
#include "tf/record.h"
#include "ux_in/records.h"

namespace shown_detail {

inline std::string number(std::int64_t value) { return ' ' + std::to_string(value); }
inline std::string text(std::string_view value) { return ' ' + std::string(value); }

inline std::string header(const tf_Record& record) {
    std::string line = " class" + number(record.get16(20)) + " type" + number(record.get16(22)) + " flags" +
                       number(record.get32(24)) + " hops" + number(record.get32(32));
    if (record.size() > ux::HeaderLayout::size) line += " mime" + text(record.get_string(54));
    return line;
}

inline std::string counts(const tf_Record& record) {
    std::string line = " flags" + number(record.get32(16)) + " total" + number(record.get16(20));
    for (const std::size_t at : {22, 24, 26, 28, 36, 38}) line += number(record.get16(at));
    return line;
}

inline std::string identifier(const tf_Record& record) {
    const std::string_view first = record.get_string(18);
    if (record.type() != TFREC_message_id) return text(first);
    return text(first) + " |" + text(record.get_string(18 + first.size() + 1));
}

inline std::string content(const tf_Record& record) {
    const TFREC_content_file file = tf_ContentFileRecToStruc(record);
    return number(file.contentType) + " kind" + number(file.contentFlags) + " size" + number(file.fileSize) +
           text(file.rfc2047subject);
}

inline std::string fields(const tf_Record& record) {
    switch (record.type()) {
        case TFREC_header: return header(record);
        case TFREC_creator:
        case TFREC_p2_originator: return text(record.get_string(36));
        case TFREC_subject: return text(record.get_string(16));
        case TFREC_creation_date:
        case TFREC_reply_by:
        case TFREC_expiry_date:
        case TFREC_deferred_delivery:
        case TFREC_latest_delivery: return number(record.get32(16)) + number(record.get16(20));
        case TFREC_message_id:
        case TFREC_in_reply_to:
        case TFREC_references:
        case TFREC_obsoletes: return identifier(record);
        case TFREC_list_counts: return counts(record);
        case TFREC_content_file_type: return content(record);
        case TFREC_start_package_type: {
            const TFREC_start_package package = tf_ST_PKG_to_Struc(record);
            return number(package.pkgType) + number(package.qnPkgType) + text(package.rfc2047subject);
        }
        case TFREC_end_package: return {};
        case TFREC_object_file:
            return number(record.get32(16)) + text(record.get_string(24)) + number(record.get32(20));
        case TFREC_recipient:
            return number(record.get16(16) & 0xFFFF) + number(record.get16(20)) + text(record.get_string(24));
        default: return text(record.get_string(24));  // list entries and the originator return address
    }
}

}  // namespace shown_detail

// A wrapped record is the one in it, in parentheses.
inline std::string shown(const tf_Record& record) {
    if (record.type() == TFREC_wrapped) {
        tf_Record inner = record;
        tf_ChangeFromWrapRec(inner);
        return "(" + shown(inner) + ")";
    }
    return std::to_string(record.type()) + shown_detail::fields(record);
}

// All records of a file, from its start.
inline std::vector<std::string> shown(tf_File& file) {
    std::vector<std::string> lines;
    tf_Record record;
    for (tf_UnreadFile(file); tf_ReadRecord(file, record);) lines.push_back(shown(record));
    return lines;
}

// All records in the bytes of a record file.
inline std::vector<std::string> shown_bytes(std::string_view bytes) {
    im_Item item = im_CrNewDataItem();
    item.write(bytes);
    tf_File file = tf_open(std::move(item));
    return shown(file);
}

// Those of the lines that show records of one type.
inline std::vector<std::string> of_type(const std::vector<std::string>& lines, int type) {
    std::vector<std::string> found;
    for (const std::string& line : lines)
        if (line.starts_with(std::to_string(type) + " ")) found.push_back(line);
    return found;
}

// The one record of a type, or "" when there is none or more than one.
inline std::string only(const std::vector<std::string>& lines, int type) {
    const std::vector<std::string> found = of_type(lines, type);
    return found.size() == 1 ? found.front() : std::string();
}
