// What converting a MIME message is about: the conversion as a whole, and the part in hand.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "im/im.h"
#include "msg/msg.h"
#include "tf/file.h"
#include "ux_mimein/content_header.h"
#include "ux_mimein/hidden_records.h"

// Process-wide values of the MIME converter; the ones that belong to one message are reset when it begins.
struct ux_MimeState {
    int nestLevel = 0;                        // depth of multiparts
    int msgNestLevel = 0;                     // depth of encapsulated messages
    bool havePnPropsForMsg = false;           // a property part was found
    bool IcalNowAttachment = false;           // calendar parts are only stored from now on; stays for the process
    bool makeIcalBPDesc = true;               // a converted calendar gets a description part
    std::int64_t icalPartAlternativePos = 0;  // of the text alternative before a calendar part; 0 none
    ITEM_REF pFirstTxtPartFName{};            // of a text/plain part numbered 1, kept for the part numbered 2
    std::optional<bool> HaveSteering;         // there is a steering file, once that was asked
    std::optional<bool> smime_v2;             // SMIME_V2, once it was read; stays for the process
};
ux_MimeState& ux_mime_state();
// Change the depth of multiparts by one. True: it is now 1, that of the outermost.
bool ux_IncrementNesting();
bool ux_DecrementNesting();
// Resets what belongs to a message, the stream in force included.
void ux_begin_mime_message();
void ux_reset_mime_state();  // everything; for tests

struct ux_MimePart;

// One message's conversion.
struct ux_MimeConversion {
    tf_File& TfHandle;
    Msg_File& MsgHandle;
    bool& pbEndOfMsg;
    bool GenObjFiles = true;
    std::int16_t& pAckReq;
    bool& pReplyReq;
    std::int32_t CreateGMTTime = 0;
    std::int16_t CreateTimeZone = 0;
    ux::HiddenRecords hidden = {};  // what superseded alternatives have marked in TfHandle
    // Receive the native reports that an outermost multipart/report is turned into; none: it is ordinary mail.
    Msg_File* pAckMsgHandle = nullptr;
    Msg_File* pNDNMsgHandle = nullptr;
    // Converts an entity into another message than this one: what came back with a report. Nothing in it does so again.
    void (*ConvertEntity)(ux_MimeConversion&, ux_MimePart&) = nullptr;
    // Bytes put in front of the address lists, all in all: a position that was saved behind them when it was less has
    // moved by the difference.
    std::int64_t moved_back = 0;

    void moved(std::int64_t position, std::int64_t bytes);  // the record at `position` and all behind it have moved
};

// The boundary lines of a multipart, without their line ends; empty ones match no line.
struct ux_PartMarkers {
    std::string pszPartMarker;      // "--" boundary
    std::string pszLastPartMarker;  // "--" boundary "--"
};

// The entity in hand: what a message or a multipart hands to the dispatcher.
struct ux_MimePart {
    std::string_view pRfc2047subject;         // for packages and item descriptions; outlives the part's conversion
    ux_ContentHeader header;                  // type, encoding, disposition, identifier, location
    bool bInImmediateMsg = false;             // the body of a message, not of a multipart
    const ux_PartMarkers* markers = nullptr;  // of the enclosing multipart
    bool* pbLastPart = nullptr;               // set when the enclosing multipart's closing line has been read
    im_Item* pHeaderRef = nullptr;            // the message's header; deleted when the entity is done
    im_Item* pContentHdrRef = nullptr;        // the part's own header lines
    std::int64_t ContentTypePos = -1;
    bool AtTopLevel = false;
    std::int64_t tfDistListPos = -1;
    int partNumber = 1;        // among its siblings, from 1
    bool mapiPropped = false;  // out: the part became native properties
};
