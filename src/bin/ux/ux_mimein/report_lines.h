// The text of a report (RFC 6522): its lines, its parts one after the other, and the fields of a notification in it.
//
//   field = name ":" value *( line-end blank value )
//
// The bound of a value is that of a content header's, 1,023 characters; the rest of a longer line, and continuation
// lines that do not fit, are left out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ux_in/lines.h"
#include "ux_mimein/content_header.h"

// What the parsers of reports read: a multipart from behind its header. The values outlive the parsers.
struct ux_ReportText {
    std::string_view pszPartMarker;      // "--" boundary
    std::string_view pszLastPartMarker;  // "--" boundary "--"
    bool& pbEndOfMsg;                    // set: the end line of the message has been read
    bool& pbLastPart;                    // set: the closing line of the report has been read
};

// The fields of reports (RFC 3464, RFC 8098) that are known, and ours.
enum class ux_ReportField : int {
    reporting_ua = 1,
    reporting_mta = 2,
    original_recipient = 3,
    final_recipient = 4,
    original_message_id = 5,
    disposition = 6,
    action = 7,
    status = 8,
    diagnostic_code = 9,
    remote_mta = 10,
    original_envelope_id = 11,
    reason_code = 12,  // what a mail system of our kind says of itself, more exactly than a status can
    none = -1,
};

namespace ux {

// The number of a field's name, in any case of its letters; blanks before the colon make another name of it.
ux_ReportField find_report_field(std::string_view name);

// "rfc822;user@host": the address when its type is "rfc822" (in any case), however empty; nothing for another type.
std::optional<std::string_view> rfc822_address(std::string_view value);

// An identifier as a report gives it, without angle brackets, in native form. Nothing when it is none of this mail
// system's, or the message with the report in it is on its way from one stranger to another.
std::optional<std::string> own_message_id(std::string_view identifier);

enum class ReportLine {
    text,
    blank,
    next_part,  // the boundary line: the part before it has ended
    last_part,  // the closing line
    end_of_message,
};

// Reads the lines of a report. White space at their ends does not count, not even behind a boundary.
class ReportReader {
public:
    explicit ReportReader(const ux_ReportText& text) : report_(text) {}

    ReportLine next();
    bool ended() const { return report_.pbEndOfMsg || report_.pbLastPart; }
    static bool ends_part(ReportLine line) { return line > ReportLine::blank; }

    std::uint64_t offset() const;  // in the report copy, of what is read next; 0: nothing is copied

    // The line read last as a field. What is none, or is in the middle of a long line, is ux_ReportField::none.
    ux_ReportField field();
    // Its value so far: of the first line. Good until value() or the next line.
    std::string_view argument() const { return argument_; }
    // `start`, which is that value or a piece of it, trimmed, with the continuation lines.
    static std::string value(std::string_view start);

    bool skip_preamble();       // to the first part; false: there is none
    ux_ContentHeader header();  // of the part that begins here
    void skip_part();           // to the line that ends the part
    void drop_rest();           // to the end line of the message

private:
    ReportLine kind_of(const ux_MailText& piece) const;

    ux_ReportText report_;
    std::string_view line_;  // read last, trimmed; empty in the middle of a long line
    std::string_view argument_;
};

// Reads on to the end line of the message, many lines at a time.
void drop_mail_text(bool& pbEndOfMsg);

}  // namespace ux
