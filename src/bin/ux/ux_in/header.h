// The header of a message (RFC 5322, section 2.2), in two passes: the first reads it from the dialogue, saves it as
// an item and finds out what kind of body follows; the second turns the saved fields into records.
//
// The saved header has CR LF line ends and no dots too many; unknown fields that begin "x-ploxen" are taken out of it:
// only we may write them, and a stranger's must not travel on.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "im/im.h"
#include "tf/file.h"

// Into what a header is converted, and what the envelope said.
struct ux_UnixMsgHeaderTarget {
    tf_File& pTfHandle;  // replaced when the content type is added to its header record
    tf_File& DLHandle;
    std::int64_t HeaderPos = 0;  // of the header record in pTfHandle
    bool FromMailerDaemon = false;
    std::string_view pArpaSender;
    std::string_view pEnvid;
};

// What was found.
struct ux_UnixMsgHeader {
    im_Item pHeaderRef;                 // the saved header
    std::int64_t pContentTypePos = -1;  // of the last "Content-Type" line in it
    std::string pRfc2047subjectD;
    std::string pSender822, pFirstFrom;  // first Sender and first From address, as written
    bool pMimeMsg = false, pUudecodeMsg = false, pRfc1154 = false;
    std::string ppEncoding;  // the encoding or part-information list
    bool pEndOfMsg = false;  // the end line came inside the header
    std::string pMIMEContentType, pMIMEContentDisposition;
    bool pMDNWanted = false;
    std::int32_t pCreateGMTTime = 0;
    std::int16_t pCreateTimeZone = 0;
    int Priority = 0;  // 0 normal, 1 non-urgent, 2 urgent
};

// Process-wide values that the header leaves for the rest of the conversion.
struct ux_HeaderState {
    int inet_DefMailNodeNum = 0;  // default mail node: 1 MIME, 2 RFC 1154, 3 other messages
};
ux_HeaderState& ux_header_state();
void ux_reset_header();

// Reads and converts the header from the dialogue; the input stands at the first body line afterwards. Raises 102/1544
// after reading a looping message (X-Lucent-Syncmark and Autoforwarded) to its end, 102/1401 when input ends, and what
// the stores raise.
ux_UnixMsgHeader ux_InParseUnixMsgHeader(const ux_UnixMsgHeaderTarget& target);

// Copies a transfer file into a new one with the content type in every header record, and deletes the old one.
void ux_InAddCTToHeader(tf_File& pTfHandle, std::string_view pMIMEContentType);
