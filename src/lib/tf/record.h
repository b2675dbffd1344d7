// Records of transfer files, distribution-list files, message files and queue entries.
//
//   offset width  field
//   0      u32    size of the whole record, these 16 bytes included
//   4      i32    record type
//   8      i32    result, 0
//   12     u16    flags, 0
//   14     u16    word: 40 in the records of a distribution-list file that say so, else 0
//
// Everything is big-endian and unaligned; strings are NUL-terminated bytes in place; bytes that no field covers are
// zero; a record is as long as its last field needs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "im/im.h"

// Written to disk: never renumbered.
enum tf_Type : std::int32_t {
    TFREC_queue_file_start = 90,
    TFREC_message_file = 91,
    TFREC_queue_entry = 92,
    TFREC_header = 1100,
    TFREC_creator = 10000,
    TFREC_p2_originator = 10005,
    TFREC_subject = 11100,
    TFREC_item_class = 11200,
    TFREC_creation_date = 13000,
    TFREC_message_id = 13100,
    TFREC_in_reply_to = 13200,
    TFREC_reply_by = 13600,
    TFREC_expiry_date = 13700,
    TFREC_references = 13800,
    TFREC_obsoletes = 13900,
    TFREC_deferred_delivery = 14100,
    TFREC_reply_to = 15000,
    TFREC_latest_delivery = 16000,
    TFREC_originator_return = 16100,
    TFREC_list_counts = 20010,
    TFREC_list_from = 22000,
    TFREC_list_to = 22100,
    TFREC_list_cc = 22200,
    TFREC_list_bcc = 22300,
    TFREC_list_sender = 22430,
    TFREC_list_reply_to = 22440,
    TFREC_start_package_type = 30100,
    TFREC_start_alternatives = 30200,
    TFREC_content_file_type = 30500,
    TFREC_file_creation_date = 30600,
    TFREC_file_modification_date = 30605,
    TFREC_object_file = 30700,
    TFREC_mapi_properties = 30710,
    TFREC_wrapped = 34500,
    TFREC_end_package = 39000,
    TFREC_end_alternatives = 39100,
    TFREC_recipient = 40000,
    TFREC_acknowledgement = 42100,
    TFREC_non_delivery = 42200,
};

inline constexpr std::size_t kTfHeaderSize = 16;

// One record being built or just read. Putting a field makes the record long enough for it.
class tf_Record {
public:
    explicit tf_Record(std::int32_t type = 0) { init(type); }
    void init(std::int32_t type);
    void assign(std::string bytes) { bytes_ = std::move(bytes); }  // a whole record as it stands in a file

    std::int32_t type() const { return get32(4); }
    void put16(std::size_t at, std::int16_t value);
    void put32(std::size_t at, std::int32_t value);
    void put64(std::size_t at, std::int64_t value);
    std::size_t put_string(std::size_t at, std::string_view text);  // up to its first NUL; returns the offset after it
    void put_ref(std::size_t at, const ITEM_REF& ref);              // 20 bytes

    // Fields beyond the record's end read as zero or empty.
    std::int16_t get16(std::size_t at) const;
    std::int32_t get32(std::size_t at) const;
    std::int64_t get64(std::size_t at) const;
    std::string_view get_string(std::size_t at) const;  // good while the record is
    ITEM_REF get_ref(std::size_t at) const;

    std::string_view bytes() const { return bytes_; }
    std::size_t size() const { return bytes_.size(); }

private:
    void make_room(std::size_t end);
    std::string bytes_;
};

// Size of the record that starts with `bytes`, 0 when it is less than a record head or not even there.
std::uint32_t tf_record_size(std::string_view bytes);

void tf_InitRecord(tf_Record& record, std::int32_t type);
void tf_PutINT16(tf_Record& record, std::size_t at, std::int16_t value);
void tf_PutINT32(tf_Record& record, std::size_t at, std::int32_t value);
void tf_PutString(tf_Record& record, std::size_t at, std::size_t* next, std::string_view text);
std::int32_t tf_GetINT32(const tf_Record& record, std::size_t at);

// A wrapped record (34500) holds a whole record, its 16-byte header included, from offset 16.
void tf_ChangeToWrapRec(tf_Record& record);
void tf_ChangeFromWrapRec(tf_Record& record);

// Subject record: string@16 the subject in RFC 2047 form, four empty strings, i32 0.
void tf_MakeSubjectRec(tf_Record& record, std::int32_t type, std::string_view subject);

// The record that ends a package, empty.
void mp_GenerateEndPackage(tf_Record& record);

// One attached file. tf_init... sets both content types and nothing else.
struct TFREC_content_file {
    std::int32_t origContentType = 0;
    std::int32_t contentType = 0;
    std::uint32_t contentFlags = 0;
    std::int32_t fileSize = 0;
    std::string latinSubject, pOrigFileName, pContentLang, pContentCharset, subjLang, latinSubjCharset,
        pX400_DataObjectId, pX400_ParamsObjectId, t61Subject, t61SubjCharset, pOrigCharset, pApplicRef,
        pMIMEContentType, pContentDisp, pContentID, pContentLocation, rfc2047subject;
};
// What goes into fileSize: an item larger than the field can tell is given as the largest number.
std::int32_t tf_file_size(std::uint64_t bytes);
void tf_initTFREC_content_file(TFREC_content_file& file, std::int32_t type);
void tf_ContentFileRecFromStruc(tf_Record& record, const TFREC_content_file& file);
TFREC_content_file tf_ContentFileRecToStruc(const tf_Record& record);

struct TFREC_start_package {
    std::int32_t pkgType = 0;
    std::int32_t security = 0;
    std::string latinSubject, subjLang, latinSubjCharset;
    std::int32_t pkgFlags = 0;
    std::int32_t qnPkgType = 0;
    std::int16_t itemType = 0;
    std::string pMIMEContentType, rfc2047subject;
};
void tf_initTFREC_start_package(TFREC_start_package& package, std::int32_t type, std::int32_t qnPkgType);
void tf_ST_PKG_from_Struc(tf_Record& record, const TFREC_start_package& package);
TFREC_start_package tf_ST_PKG_to_Struc(const tf_Record& record);
void tf_SetPkgParallel(tf_Record& record);  // sets the package flag 2 of such a record
