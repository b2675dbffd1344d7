// Signed messages (multipart/signed; RFC 1847): what was signed is attached as it came, in one item that a client can
// verify, beside the content that is converted like any other.
//
// The signature item is the entity with CR LF line ends:
//
//   Content-Type: multipart/signed;     each parameter on a line of its own, folded with a tab
//   <TAB>micalg=...;
//   <TAB>boundary=...
//   (two empty lines)
//   --boundary                          and all that follows, to the closing boundary line
//
// Dots are unstuffed in it, but not in S/MIME version 2 mode (SMIME_V2), in which nothing but this item is made.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "im/im.h"
#include "ux_mimein/mail_input.h"
#include "ux_mimein/mime_part.h"

// A signed entity whose first boundary line has been read.
struct ux_SignedSource {
    const ux_PartMarkers& markers;
    std::string_view parameters;  // of its content type, as written; may be empty
};

// What is made of one by default. While it lives, MIME text is read from a copy of the entity, which begins behind the
// first boundary line, has its dots and line ends as they came, and is ended by an end line. As far as the signature
// item has the same bytes, which is all of most mail, it is that copy itself.
class ux_SignedEntity {
public:
    explicit ux_SignedEntity(const ux_SignedSource& source);  // reads the entity from the stream in force

    im_Item SgnItem;
    bool isSendmailExhausted = false;  // the entity was ended by the end line of the message

private:
    std::size_t read(char* data, std::size_t room);

    im_Item tmpItem_;            // what follows the bytes that are the same
    std::uint64_t at_ = 0;       // where reading stands in the signature item,
    std::uint64_t same_ = 0;     // which is the copy up to here
    std::uint64_t rest_at_ = 0;  // and in the other
    std::optional<ux_MimeSource> input_;
};

// Reads the entity from the stream in force, to its closing line or the end line of the message. Raises 102/1401 when
// input ends, and what writing items raises.
std::unique_ptr<ux_SignedEntity> ux_MimeSignedPart(const ux_SignedSource& source);
// The same for S/MIME version 2 mode: an end line stands in the item, and sets pbEndOfMsg.
im_Item ux_MimeSignedPart_v2(const ux_SignedSource& source, bool& pbEndOfMsg);

// Attaches a signature item, with a content-file record of type 2185.
void ux_MimeAddSigned(ux_MimeConversion& conversion, im_Item SgnItem);
