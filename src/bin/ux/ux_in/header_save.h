// First pass over a header: read it, save it as an item, find out what it is the header of.
//
// The header of a message and those of messages inside it are read alike; each has a class of its own for where its
// lines come from, how they are saved and what is noticed on the way.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "im/im.h"
#include "ux_in/commands.h"
#include "ux_in/lines.h"

namespace ux {

// Reads to the blank line, which is not saved, or to the end line of the message, and saves every line with CR LF.
class HeaderSaver {
public:
    explicit HeaderSaver(im_Item& item);
    virtual ~HeaderSaver() = default;
    HeaderSaver(const HeaderSaver&) = delete;
    HeaderSaver& operator=(const HeaderSaver&) = delete;

    // True when the end line came inside the header. Raises 102/1411 when the item cannot be written, 102/1401 when
    // input ends.
    bool run();

protected:
    virtual ux_MailText read() = 0;
    // Is the header at its end with this piece, without a blank line?
    virtual bool is_cut_off(const ux_MailText& /*piece*/) { return false; }
    virtual std::string_view as_saved(const ux_MailText& piece) const = 0;
    // A line has been saved at `start`; `field` is what it begins, if anything. Views are good during the call.
    virtual void saved(std::string_view line, const ux_KeywordLine& field, std::uint64_t start) = 0;

    im_Item& item() { return item_; }

private:
    bool ends_header(const ux_MailText& piece);
    void save(std::string_view line);

    im_Item& item_;
    bool white_line_ends_;
};

struct SavedHeaderKind {
    bool end_of_message = false;  // the end line came inside the header
    bool mime = false;            // MIME-Version, Content-Type or Content-Transfer-Encoding was there
    bool rfc1154 = false;         // Encoding was there
    bool uudecode = false;        // the marker field was there, or no marker is configured
};

// The header of a message, from the dialogue: a dot too many goes, and so do unknown fields that begin "x-ploxen".
// Raises as HeaderSaver::run().
SavedHeaderKind save_header(im_Item& item);

}  // namespace ux
