// Flags in words: every bit of the byte table, alone and in company.
#include "morvane/spell.h"

#include <string>

#include <gtest/gtest.h>

namespace morvane {
namespace {

std::string joined(const Words& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : "; ") + word;
    return text;
}

struct Row {
    std::int64_t value;
    std::string_view expected;
    std::string_view why = {};
};

TEST(Spell, HeaderFlags) {
    const Row kRows[] = {
        {0, ""},
        {1, "non-urgent"},
        {2, "urgent"},
        {5, "priority 5", "three bits are stored whatever they say"},
        {1 << 3, "personal"},
        {2 << 3, "private"},
        {3 << 3, "company confidential"},
        {1 << 6, "low importance"},
        {2 << 6, "high importance"},
        {7 << 6, "importance 7", "its third bit lies in the second byte"},
        {0x0400, "content goes back with reports"},
        {0xB000, "auto-forwarded"},
        {0xE000, "auto-replied"},
        {0xF000, "auto-forwarded; auto-replied", "ORed, not assigned"},
        {0x8000, "no replies to bulk mail"},
        {0xA000, "from a mailer daemon"},
        {0xB400 | 2, "urgent; auto-forwarded; content goes back with reports"},
        {0x2000, "flags 0x2000", "no mark of its own"},
        {0x0200, "flags 0x200"},
        {0x10000, "flags 0x10000"},
    };
    for (const Row& row : kRows)
        EXPECT_EQ(joined(spell_header_flags(row.value)), row.expected) << row.value << ' ' << row.why;
}

TEST(Spell, RecipientFlags) {
    const Row kRows[] = {
        {0, "From"},
        {1 << 5, "To"},
        {2 << 5, "Cc"},
        {3 << 5, "Bcc"},
        {7 << 5, "category 7"},
        {(1 << 5) | 4, "To; acknowledge delivery"},
        {(1 << 5) | 7, "To; acknowledge reading"},
        {(1 << 5) | 5, "To; acknowledge level 5"},
        {(1 << 5) | 7 | 0x2000, "To; acknowledge reading; no acknowledgement of delivery"},
        {(1 << 5) | 16, "To; no non-delivery report"},
        {(1 << 5) | 0x1000, "To; reply requested"},
        {(1 << 5) | 0x8000, "To; disposition notification wanted"},
        {static_cast<std::int16_t>(0x8000 | 1 << 5), "To; disposition notification wanted",
         "as it is read, a negative number"},
        {(1 << 5) | 0x0100, "To; flags 0x100"},
    };
    for (const Row& row : kRows)
        EXPECT_EQ(joined(spell_recipient_flags(row.value)), row.expected) << row.value << ' ' << row.why;
}

TEST(Spell, Reports) {
    EXPECT_EQ(joined(spell_acknowledgement(4)), "delivered");
    EXPECT_EQ(joined(spell_acknowledgement(4 | 1 << 4)), "delivered; list expanded");
    EXPECT_EQ(joined(spell_acknowledgement(6 | 2 << 4)), "deleted; expired");
    EXPECT_EQ(joined(spell_acknowledgement(6 | 3 << 4)), "deleted; superseded");
    EXPECT_EQ(joined(spell_acknowledgement(6 | 4 << 4)), "deleted; mailbox closed");
    EXPECT_EQ(joined(spell_acknowledgement(7 | 128)), "read; sent by hand");
    EXPECT_EQ(spell_outcome(4 | 1 << 4), "delivered");
    EXPECT_EQ(spell_outcome(6 | 128), "deleted");
    EXPECT_EQ(spell_outcome(7), "read");
    EXPECT_EQ(spell_outcome(0), "");
    EXPECT_EQ(spell_outcome(5), "") << "a level that has no word";
    EXPECT_EQ(joined(spell_reason(511)), "bad destination mailbox; reason 511 (status x.1.1, addressing)");
    EXPECT_EQ(joined(spell_reason(522)), "mailbox full; reason 522 (status x.2.2, mailbox)");
    EXPECT_EQ(joined(spell_reason(531)), "mail system full; reason 531 (status x.3.1, mail system)");
    EXPECT_EQ(joined(spell_reason(547)), "delivery time expired; reason 547 (status x.4.7, network and routing)");
    EXPECT_EQ(joined(spell_reason(552)), "syntax error; reason 552 (status x.5.2, mail protocol)");
    EXPECT_EQ(joined(spell_reason(561)), "content not supported; reason 561 (status x.6.1, message content)");
    EXPECT_EQ(joined(spell_reason(571)), "delivery not authorised; reason 571 (status x.7.1, security or policy)");
    EXPECT_EQ(joined(spell_reason(501)), "reason 501 (status x.0.1, undefined)");
    EXPECT_EQ(joined(spell_reason(579)), "reason 579 (status x.7.9, security or policy)") << "a detail without a word";
    EXPECT_EQ(joined(spell_reason(580)), "reason 580") << "no such subject";
    EXPECT_EQ(joined(spell_reason(500)), "reason 500") << "that is never written: it becomes 300";
    EXPECT_EQ(joined(spell_reason(300)), "no reason given; reason 300");
    EXPECT_EQ(joined(spell_reason(1234)), "reason 1234");
    EXPECT_EQ(joined(spell_reason(-1)), "reason -1");
}

TEST(Spell, ClassesAndTypes) {
    EXPECT_EQ(joined(spell_class(0)), "message");
    EXPECT_EQ(joined(spell_class(1)), "report");
    EXPECT_EQ(joined(spell_class(2)), "distribution list");
    EXPECT_EQ(joined(spell_class(9)), "class 9");
    EXPECT_EQ(joined(spell_message_type(0)), "");
    EXPECT_EQ(joined(spell_message_type(1)), "reply");
    EXPECT_EQ(joined(spell_message_type(100)), "non-delivery");
    EXPECT_EQ(joined(spell_message_type(110)), "acknowledgement");
    EXPECT_EQ(joined(spell_message_type(1000)), "");
    EXPECT_EQ(joined(spell_message_type(7)), "type 7");
}

TEST(Spell, ContentAndPackages) {
    EXPECT_EQ(joined(spell_content_flags(0x21)), "hidden: a richer alternative follows");
    EXPECT_EQ(joined(spell_content_flags(2)), "of the message itself");
    EXPECT_EQ(joined(spell_content_flags(0x23)), "hidden: a richer alternative follows; of the message itself");
    EXPECT_EQ(joined(spell_content_flags(0x80)), "flags 0x80");
    EXPECT_EQ(joined(spell_package_flags(2)), "parallel");
    EXPECT_EQ(joined(spell_package_flags(4)), "signed");
    EXPECT_EQ(joined(spell_package_flags(0x18 | 2)), "parallel; hidden: a richer alternative follows");
    EXPECT_EQ(joined(spell_list_flags(1)), "no blind copies");
    EXPECT_EQ(joined(spell_list_flags(0)), "");
}

TEST(Spell, FileCodes) {
    const Row kRows[] = {
        {0, "binary"},
        {1166, "distribution list"},
        {1167, "plain text"},
        {1168, "message header"},
        {1734, "TNEF"},
        {1736, "text in another character set"},
        {2130, "rich text"},
        {2133, "HTML"},
        {2185, "signed message"},
        {2191, "calendar"},
        {3100, "property part"},
        {3109, "property part"},
        {3099, ""},
        {3110, ""},
        {-1, ""},
    };
    for (const Row& row : kRows) EXPECT_EQ(spell_file_code(row.value), row.expected) << row.value;
    EXPECT_TRUE(is_text_code(1167) && is_text_code(2133) && is_text_code(3105));
    EXPECT_FALSE(is_text_code(0) || is_text_code(1734) || is_text_code(1166) || is_text_code(4711));
}

TEST(Spell, DatesInTheirOwnZone) {
    EXPECT_EQ(spell_date(0, 0), "Thu 1970-01-01 00:00:00 +00:00");
    EXPECT_EQ(spell_date(1700000000, 60), "Tue 2023-11-14 23:13:20 +01:00");
    EXPECT_EQ(spell_date(1700000000, -570), "Tue 2023-11-14 12:43:20 -09:30");
    EXPECT_EQ(spell_date(0xFFFFFFFFLL, 0), "Sun 2106-02-07 06:28:15 +00:00");  // seconds are unsigned
    EXPECT_EQ(spell_date(0, -32768), "Tue 1969-12-09 05:52:00 -546:08");       // whatever a zone says
    EXPECT_EQ(iso_date(1700000000, 60), "2023-11-14T23:13:20+01:00");
    EXPECT_NO_FATAL_FAILURE(spell_date(INT64_MAX / 2, 0));  // a year beyond all calendars
}

}  // namespace
}  // namespace morvane
