// Reading MIME text: lines from the stream in force, folded header lines, and the copy that is kept while a report
// may still have to be read again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "im/im.h"
#include "ux_in/lines.h"

// Process-wide values of MIME input.
struct ux_MimeInputState {
    ux_LineReader* mimfp = nullptr;  // where MIME text is read from; none: the dialogue
    im_Item* Reportfp = nullptr;     // gets a copy of what is read
    bool gCopyForReport = false;     // ... while this holds
    // The alternative steering files have been looked for, or an encoded subject came first: then they never are, and
    // the steering that was loaded at start-up stays alone for the life of the process.
    bool GotMimeSteering = false;
};
ux_MimeInputState& ux_mime_input();
void ux_begin_mime_input();  // resets what belongs to one message: the stream and the copy
void ux_reset_mime_input();  // everything; for tests

ux_LineReader& ux_MimeInput();  // the stream in force

// One piece of MIME text (see ux_MailText), NUL bytes as blanks; copied to the report copy as it arrived, NUL bytes and
// line end included. Raises 102/1401 at the end of input, 102/1427 when the copy needs a file and gets none, 102/1412
// when that cannot be written.
ux_MailText GetMailText();
// The same with NUL bytes as they are, for content that is kept byte for byte.
ux_MailText GetRawMailText();

// Many lines at once: what lies ready when the next byte begins a line (ux_LineReader::lines_ahead). Of it
// TakeMailLines takes whole lines, none of which may be an end line; they are copied like any other. Raises as
// GetMailText.
std::string_view MailLinesAhead();
void TakeMailLines(std::size_t bytes);

// Appends the continuation lines of a header field (they begin with a blank or a tab) to pszString, each trimmed, and
// copies them to pHeaderStream when one is given. An encoded word is joined by one blank, anything else by nothing:
// what mailers fold between are tokens that need none. The value is cut at 1,023 characters. Raises 102/1412 when a
// copy cannot be written, 102/1411 when it is a line end of the header item.
void GetContinuation(std::string& pszString, im_Item* pHeaderStream);
namespace ux {
// The same for one such line that has been read already.
void append_folded(std::string& pszString, std::string_view line);

// Is it the marker, alone on its line but for blanks and tabs after it? An empty marker matches no line.
bool is_boundary_line(const ux_MailText& piece, std::string_view marker);
// The same for the line that closes a multipart. Its letters are taken in any case, as they are behind a multipart: it
// closes its level whatever its last part is.
bool is_closing_line(const ux_MailText& piece, std::string_view marker);
}  // namespace ux

// Writes to an item; a failure of the store leaves as 102/`reason`.
void ux_write_or_escape(im_Item& item, std::string_view data, int reason);

// MIME text comes from elsewhere while this lives; then from where it came before.
class ux_MimeSource {
public:
    explicit ux_MimeSource(ux_LineReader::Source source);
    ~ux_MimeSource();
    ux_MimeSource(const ux_MimeSource&) = delete;
    ux_MimeSource& operator=(const ux_MimeSource&) = delete;

private:
    ux_LineReader* before_;
    ux_LineReader reader_;
};

// The report copy. While it copies, what is read from the stream in force is kept, in memory until it is large, then in
// a file without a name; the store never sees it. It can then be the stream in force itself, from any place. At its end
// MIME text comes from where it came before, and nothing is left.
class ux_ReportCopy {
public:
    ux_ReportCopy();  // begins to copy
    ~ux_ReportCopy();
    ux_ReportCopy(const ux_ReportCopy&) = delete;
    ux_ReportCopy& operator=(const ux_ReportCopy&) = delete;

    std::uint64_t offset() const { return item_.size(); }  // of the text that is read next
    void stop();                                           // copies no more
    void read_again(std::uint64_t offset = 0);             // copies no more; MIME text is the copy, from there on

private:
    im_Item item_;
    std::optional<ux_MimeSource> input_;
};
