// Native records that describe a message as a whole (header, creator, originator, recipients, dates, return address)
// and the records of its distribution-list file (list counts, reply-to, list entries); and the update of the
// header record once every header field is known.
//
// The builders start a record afresh and fill it; the caller appends it. They raise nothing themselves. Integers are
// big-endian, strings NUL-terminated, bytes that no field covers zero (tf/record.h). Offsets count from the record's
// first byte, its 16-byte header included.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "nm/nm.h"
#include "tf/file.h"
#include "tf/record.h"

namespace ux {

// Word of the record header that marks the records of a distribution-list file.
inline constexpr std::size_t kRecordWordAt = 14;
inline constexpr std::int16_t kListRecordWord = 40;

// 1100, header. Without a MIME type the record is 46 bytes.
struct HeaderLayout {
    static constexpr std::size_t version = 16;       // i16, 3
    static constexpr std::size_t zero = 18;          // i16, 0
    static constexpr std::size_t tf_class = 20;      // i16, 0 message, 2 distribution list
    static constexpr std::size_t message_type = 22;  // i16
    static constexpr std::size_t flags = 24;         // i32, HeaderFlags
    static constexpr std::size_t one = 28;           // i32, 1
    static constexpr std::size_t hop_count = 32;     // i32
    static constexpr std::size_t two = 42;           // i32, 2
    static constexpr std::size_t size = 46;          // what every header record has
    static constexpr std::size_t mime_type = 54;     // string, when there is one
    static_assert(hop_count + 4 <= two && two + 4 == size && size <= mime_type);
};

// Flags word of the header record. What is not named here is kept by the update.
struct HeaderFlags {
    static constexpr std::uint32_t three_bits = 7;  // width of each of the next three
    static constexpr unsigned priority_shift = 0;
    static constexpr unsigned sensitivity_shift = 3;
    static constexpr unsigned importance_shift = 6;
    static constexpr std::uint32_t content_wanted = 0x0400;  // full content goes into reports
    static constexpr std::uint32_t autoforwarded = 0xB000;   // these four share bits and combine
    static constexpr std::uint32_t autoreplied = 0xE000;
    static constexpr std::uint32_t no_reply_to_bulk = 0x8000;
    static constexpr std::uint32_t from_mailer_daemon = 0xA000;
};

// 10000, creator, and 10005, P2 originator.
struct CreatorLayout {
    static constexpr std::size_t zero32 = 20;  // i32, 0
    static constexpr std::size_t zero16 = 24;  // i16, 0
    static constexpr std::size_t name = 36;    // string
};

// 16100, originator return address.
struct OriginatorReturnLayout {
    static constexpr std::size_t name = 24;  // string
};

// 13000 and the other dates.
struct DateLayout {
    static constexpr std::size_t seconds = 16;  // i32, since 1970-01-01 GMT, unsigned in meaning
    static constexpr std::size_t zone = 20;     // i16, minutes east of GMT
};

// 40000, recipient.
struct RecipientLayout {
    static constexpr std::size_t flags = 16;    // i16, RecipRecFlags
    static constexpr std::size_t id = 20;       // i16, running number
    static constexpr std::size_t strings = 22;  // empty, empty, name
};

// RecipRecFlags of a recipient record.
struct RecipRecFlags {
    static constexpr std::uint32_t ack_mask = 0x000F;  // acknowledgement level
    static constexpr std::uint32_t no_non_delivery = 0x0010;
    static constexpr unsigned category_shift = 5;  // three bits
    static constexpr std::uint32_t category_mask = 7;
    static constexpr std::uint32_t reply_requested = 0x1000;
    static constexpr std::uint32_t no_delivery_ack = 0x2000;  // level above 4, but no delivery notification asked for
    static constexpr std::uint32_t mdn_wanted = 0x8000;
};

// 20010, counts of the list entries.
struct ListCountsLayout {
    static constexpr std::size_t flags = 16;  // i32, kNoBlindCopies
    static constexpr std::size_t total = 20;  // i16, sum of the six counts
    static constexpr std::size_t from = 22;   // i16 each
    static constexpr std::size_t to = 24;
    static constexpr std::size_t cc = 26;
    static constexpr std::size_t bcc = 28;
    static constexpr std::size_t zero16 = 30;  // i16, 0
    static constexpr std::size_t zero32 = 32;  // i32, 0
    static constexpr std::size_t sender = 36;
    static constexpr std::size_t reply_to = 38;
    static constexpr std::size_t size = 40;
    static_assert(zero32 + 4 == sender && reply_to + 2 == size);
};
inline constexpr std::int32_t kNoBlindCopies = 1;  // in the flags: the message has no Bcc entries

// 22000 and the other list entries.
struct ListEntryLayout {
    static constexpr std::size_t zero32 = 16;   // i32, 0
    static constexpr std::size_t zero16a = 20;  // i16, 0
    static constexpr std::size_t zero16b = 22;  // i16, 0
    static constexpr std::size_t name = 24;     // string
};

// 15000, reply-to.
struct ReplyToLayout {
    static constexpr std::size_t name = 24;  // string
};

// What goes into the fileSize field of a content-file record: larger items than the field can tell are given as the
// largest number.
std::int32_t file_size_field(std::uint64_t bytes);

}  // namespace ux

// Process-wide: the next recipient's number. It runs on from message to message of a session and wraps at 16 bits.
struct ux_RecordState {
    std::uint16_t RecipientId = 1;
};
ux_RecordState& ux_records();
void ux_reset_records();

// Header record (1100). ROCWanted: reports about the message shall carry its full content. The MIME type is written
// only when there is one.
void ux_InCreateHeaderRecord(std::int16_t TfClass, std::int16_t TfType, bool ROCWanted, std::string_view pMIMEType,
                             tf_Record& pHeaderRec);

// Creator (10000), P2 originator (10005) and originator return address (16100): pORN is a native name in text form.
void ux_InCreateCreatorRecord(std::string_view pORN, tf_Record& pCreatorRec);
void ux_InCreateP2OriginatorRecord(std::string_view pORN, tf_Record& pP2OrigRecord);
void ux_InCreateOrigRetRecord(std::string_view pORN, tf_Record& pOrigRetRecord);

// Date record of type RecType (13000, 13600, 13700, 14100, 16000, 30600, 30605): seconds GMT and minutes east.
void ux_InCreateDateRecord(std::int32_t RecType, std::int32_t GMTTime, std::int16_t TimeZone, tf_Record& pDateRec);

// What a recipient record says.
struct ux_RecipientFields {
    int Category = 0;                  // 0 From, 1 To, 2 Cc, 3 Bcc; only three bits survive
    std::string_view pRecipient = {};  // native name
    bool DisallowNonDelivery = false;
    std::int16_t AckReq = 0;  // acknowledgement level, four bits
    bool ReplyReq = false;
    bool MDNWanted = false;
    bool DelAckWanted = false;         // a delivery notification was asked for
    std::string_view pOrigRecip = {};  // when not empty, written in place of pRecipient
};

// Recipient record (40000). Takes the next RecipientId.
void ux_InCreateRecipientRecord(const ux_RecipientFields& recipient, tf_Record& pRecipientRec);

// Records of a distribution-list file: counts, all zero (20010); an entry of type RecType (22000 From, 22100 To, 22200
// Cc, 22300 Bcc, 22430 Sender, 22440 Reply-To); reply-to (15000).
void ux_InCreateDLCountRec(tf_Record& pDLRecord);
void ux_InCreateDistListRec(std::int32_t RecType, std::string_view pORName, tf_Record& pDLRecord);
void ux_InCreateReplyToRec(std::string_view pORName, tf_Record& pDLRecord);

// What the header fields say about the message as a whole; everything but HeaderPos is 0 when they say nothing.
struct ux_HeaderUpdate {
    int HopCount = 0;
    int Priority = 0;     // 0 normal, 1 non-urgent, 2 urgent
    int Importance = 0;   // 0 not given, 1 low, 2 high
    int Sensitivity = 0;  // 0 not given, 1 personal, 2 private, 3 company confidential
    int Autoforwarded = 0;
    int Autoreplied = 0;
    int NoReplyBulkMsg = 0;
    std::int16_t MsgType = 0;
    std::int64_t HeaderPos = 0;  // where the header record was appended
    bool FromMailerDaemon = false;

    // Is there anything to write? Without it the record stays as it was built.
    bool any() const {
        return HopCount != 0 || Priority != 0 || Importance != 0 || Sensitivity != 0 || Autoforwarded != 0 ||
               Autoreplied != 0 || NoReplyBulkMsg != 0 || MsgType != 0 || FromMailerDaemon;
    }
};

// Writes the update into the header record at HeaderPos, wrapped or not, in place. The flags of the second byte
// combine: autoforwarded and autoreplied together are 0xF0. Anything but a header record at HeaderPos is left alone.
void ux_InUpdateHeaderRecord(tf_File& TfHandle, const ux_HeaderUpdate& update);

// Sets field FieldNum of a name under construction to the catalog text of MessNum, of the opened set; without such a
// text the name is left without the field.
void ux_InAppendToORN(std::string& pORN, NM_PARSE_STATUS& pNameStatus, int FieldNum, int MessNum);
