// Numbers of the format in words. Every routine here gives the words that a value has; none for a value that says
// nothing (a priority of "normal", say). Dates are spelled in their own zone.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace morvane {

using Words = std::vector<std::string>;

Words spell_class(std::int64_t value);
Words spell_message_type(std::int64_t value);
Words spell_header_flags(std::int64_t value);     // priority, sensitivity, importance, reports, automatic mail
Words spell_recipient_flags(std::int64_t value);  // category, acknowledgement, what the sender asks for
Words spell_acknowledgement(std::int64_t value);  // level, sub-level, by hand
Words spell_reason(std::int64_t value);           // of a non-delivery: in words, its number, what it is about
std::string_view spell_outcome(std::int64_t acknowledgement_flags);  // "delivered", "deleted", "read", or nothing
Words spell_list_flags(std::int64_t value);
Words spell_content_flags(std::int64_t value);
Words spell_package_flags(std::int64_t value);
Words spell_package_type(std::int64_t value);
Words spell_priority(std::int64_t value);
std::string spell_category(std::int64_t recipient_flags);  // "From", "To", "Cc", "Bcc"

// Name of a file type code: "plain text"; empty for one that has none.
std::string_view spell_file_code(std::int64_t code);
bool is_text_code(std::int64_t code);  // can its content be read as lines?

// "Fri 2026-11-20 22:22:33 +01:00" for seconds GMT and a zone in minutes east.
std::string spell_date(std::int64_t seconds, std::int64_t zone);
// "2026-11-20T22:22:33+01:00", for machines.
std::string iso_date(std::int64_t seconds, std::int64_t zone);

}  // namespace morvane
