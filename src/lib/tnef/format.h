// TNEF streams ([MS-OXTNEF]): the numbers of the format.
//
//   stream    = signature (u32) key (u16) *attribute                everything is little-endian
//   attribute = level (u8: 1 message, 2 attachment) id (u32) length (u32) data checksum (u16: sum of the data's bytes)
//
//   attMAPIProps, attAttachment: properties      attRecipTable: count (u32) *properties
//   properties = count (u32) *property
//   property   = tag (u32: type in the low half, identifier in the high) [name] value
//   name       = set (16 bytes) kind (u32) ( kind 0: number (u32) / kind 1: length (u32) UTF-16LE with its NUL, padded
//   ) value      = fixed / count (u32) *fixed / count (u32) *( length (u32) bytes, padded )
//
// Fixed values take at least 4 bytes; "padded" is to a multiple of 4. Text, binary and object have a count even when
// they have one value. An object begins with the identifier of its interface (16 bytes); that of IID_IMessage is a TNEF
// stream of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "mapi/property.h"

inline constexpr std::uint32_t kTnefSignature = 0x223E9F78;
inline constexpr std::size_t kTnefStreamHead = 6;
inline constexpr std::size_t kTnefAttributeHead = 9;
inline constexpr std::size_t kTnefChecksum = 2;
inline constexpr std::uint8_t kTnefMessageLevel = 1;
inline constexpr std::uint8_t kTnefAttachmentLevel = 2;

// Attributes: never renumbered. The high half is the type of the data.
enum class tnef_Attribute : std::uint32_t {
    owner = 0x00060000,
    sent_for = 0x00060001,
    delegate_entry = 0x00060002,
    date_start = 0x00030006,
    date_end = 0x00030007,
    owner_appointment_id = 0x00040008,
    response_requested = 0x00040009,
    original_message_class = 0x00070006,
    from = 0x00008000,
    subject = 0x00018004,
    date_sent = 0x00038005,
    date_received = 0x00038006,
    message_status = 0x00068007,
    message_class = 0x00078008,
    message_id = 0x00018009,
    parent_id = 0x0001800A,
    conversation_id = 0x0001800B,
    body = 0x0002800C,
    priority = 0x0004800D,
    attach_data = 0x0006800F,
    attach_title = 0x00018010,
    attach_meta_file = 0x00068011,
    attach_create_date = 0x00038012,
    attach_modify_date = 0x00038013,
    date_modified = 0x00038020,
    attach_transport_filename = 0x00069001,
    attach_rendering_data = 0x00069002,
    mapi_properties = 0x00069003,
    recipient_table = 0x00069004,
    attachment = 0x00069005,
    tnef_version = 0x00089006,
    oem_codepage = 0x00069007,
};

// Interfaces of objects.
inline constexpr mapi_Guid kIidMessage = mapi_ole_guid(0x00020307);
inline constexpr std::size_t kIidSize = 16;

// The identifiers that have a meaning here.
enum : std::uint16_t {
    kIdMessageClass = 0x001A,
    kIdReadReceiptRequested = 0x0029,
    kIdSubject = 0x0037,
    kIdReplyRequested = 0x0C17,
    kIdBody = 0x1000,
    kIdRtfCompressed = 0x1009,
    kIdHtml = 0x1013,
    kIdDisplayName = 0x3001,
    kIdAddressType = 0x3002,
    kIdEmailAddress = 0x3003,
    kIdAttachData = 0x3701,
    kIdAttachFilename = 0x3704,
    kIdAttachLongFilename = 0x3707,
    kIdAttachMimeTag = 0x370E,
    kIdAttachContentId = 0x3712,
    kIdAttachContentLocation = 0x3713,
    kIdAttachFlags = 0x3714,
    kIdSmtpAddress = 0x39FE,
    kIdInternetCodepage = 0x3FDE,
};

// Width of a fixed value in a stream, its padding included; 0 when values of the type have lengths of their own.
// Nothing for a type that no stream can hold.
constexpr int kTnefNoType = -1;
constexpr int tnef_width(std::uint16_t type) {
    switch (static_cast<mapi_Type>(type)) {
        case mapi_Type::integer16:
        case mapi_Type::integer32:
        case mapi_Type::floating32:
        case mapi_Type::error:
        case mapi_Type::boolean: return 4;
        case mapi_Type::floating64:
        case mapi_Type::currency:
        case mapi_Type::floating_time:
        case mapi_Type::integer64:
        case mapi_Type::time: return 8;
        case mapi_Type::guid: return 16;
        case mapi_Type::object:
        case mapi_Type::string8:
        case mapi_Type::unicode:
        case mapi_Type::binary: return 0;
        default: return kTnefNoType;
    }
}
constexpr std::uint64_t tnef_padding(std::uint64_t length) { return (4 - length % 4) % 4; }
