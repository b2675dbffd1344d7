// Words for numbers: see spell.h.
#include "morvane/spell.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <span>

namespace morvane {
namespace {

struct Word {
    std::int64_t value;
    std::string_view text;
};

constexpr Word kClasses[] = {{0, "message"}, {1, "report"}, {2, "distribution list"}};

constexpr Word kMessageTypes[] = {
    {0, ""}, {1, "reply"}, {100, "non-delivery"}, {110, "acknowledgement"}, {1000, ""},
};

constexpr Word kPriorities[] = {{0, ""}, {1, "non-urgent"}, {2, "urgent"}};
constexpr Word kSensitivities[] = {{0, ""}, {1, "personal"}, {2, "private"}, {3, "company confidential"}};
constexpr Word kImportances[] = {{0, ""}, {1, "low importance"}, {2, "high importance"}};
constexpr Word kCategories[] = {{0, "From"}, {1, "To"}, {2, "Cc"}, {3, "Bcc"}};

// What a recipient has to do before the sender hears of it; each level includes those below it.
constexpr Word kAckLevels[] = {{0, ""}, {4, "delivery"}, {6, "deletion"}, {7, "reading"}};

// Of an acknowledgement that says more than its level.
constexpr Word kSubLevels[] = {
    {0, ""}, {1, "list expanded"}, {2, "expired"}, {3, "superseded"}, {4, "mailbox closed"},
};

// What has become of a message, by the level of its acknowledgement.
constexpr Word kOutcomes[] = {{0, ""}, {4, "delivered"}, {6, "deleted"}, {7, "read"}};

// Subjects of enhanced status codes (RFC 3463, section 3.1 and following).
constexpr std::array<std::string_view, 8> kStatusSubjects = {"undefined",       "addressing",          "mailbox",
                                                             "mail system",     "network and routing", "mail protocol",
                                                             "message content", "security or policy"};
constexpr std::int64_t kStatusBase = 500;

// 500 + 10 x subject + detail of an enhanced status code (RFC 3463), and 300 where there was none.
constexpr Word kReasons[] = {
    {300, "no reason given"},
    {510, "other address status"},
    {511, "bad destination mailbox"},
    {512, "bad destination system"},
    {513, "bad destination mailbox syntax"},
    {514, "destination mailbox ambiguous"},
    {515, "destination address valid"},
    {516, "mailbox has moved"},
    {517, "bad sender's mailbox syntax"},
    {518, "bad sender's system"},
    {520, "other mailbox status"},
    {521, "mailbox disabled"},
    {522, "mailbox full"},
    {523, "message too long for the mailbox"},
    {524, "mailing list expansion problem"},
    {530, "other mail system status"},
    {531, "mail system full"},
    {532, "system accepts no messages"},
    {533, "system lacks a feature"},
    {534, "message too big for the system"},
    {535, "system incorrectly configured"},
    {540, "other network or routing status"},
    {541, "no answer from host"},
    {542, "bad connection"},
    {543, "directory server failure"},
    {544, "unable to route"},
    {545, "mail system congestion"},
    {546, "routing loop detected"},
    {547, "delivery time expired"},
    {550, "other protocol status"},
    {551, "invalid command"},
    {552, "syntax error"},
    {553, "too many recipients"},
    {554, "invalid command arguments"},
    {555, "wrong protocol version"},
    {560, "other content status"},
    {561, "content not supported"},
    {562, "conversion required but prohibited"},
    {563, "conversion required but not supported"},
    {564, "conversion with loss"},
    {565, "conversion failed"},
    {570, "other security status"},
    {571, "delivery not authorised"},
    {572, "list expansion prohibited"},
    {573, "security conversion not possible"},
    {574, "security features not supported"},
    {575, "cryptographic failure"},
    {576, "cryptographic algorithm not supported"},
    {577, "message integrity failure"},
};

struct FileCode {
    std::int64_t value;
    std::string_view text;
    bool readable;
};
constexpr FileCode kFileCodes[] = {
    {0, "binary", false},           {1166, "distribution list", false},
    {1167, "plain text", true},     {1168, "message header", true},
    {1734, "TNEF", false},          {1736, "text in another character set", true},
    {2130, "rich text", true},      {2133, "HTML", true},
    {2185, "signed message", true}, {2191, "calendar", true},
};
constexpr std::int64_t kFirstPropertyPart = 3100, kLastPropertyPart = 3109;

const Word* find(std::span<const Word> words, std::int64_t value) {
    const auto found = std::find_if(words.begin(), words.end(), [&](const Word& word) { return word.value == value; });
    return found == words.end() ? nullptr : &*found;
}

// Adds the word of `value`; a value without one is told by its number, after `what`.
void add(Words& words, std::span<const Word> table, std::int64_t value, std::string_view what) {
    const Word* word = find(table, value);
    if (word == nullptr) {
        words.push_back(std::string(what) + ' ' + std::to_string(value));
    } else if (!word->text.empty()) {
        words.emplace_back(word->text);
    }
}

void add_rest(Words& words, std::int64_t flags, std::int64_t known) {
    const std::int64_t rest = flags & ~known & 0xFFFFFFFF;
    if (rest == 0) return;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "flags 0x%llX", static_cast<unsigned long long>(rest));
    words.emplace_back(text.data());
}

struct Flag {
    std::int64_t bits;
    std::string_view text;
};

Words spell_flags(std::int64_t value, std::span<const Flag> flags) {
    Words words;
    std::int64_t known = 0;
    for (const Flag& flag : flags) {
        known |= flag.bits;
        if ((value & flag.bits) == flag.bits) words.emplace_back(flag.text);
    }
    add_rest(words, value, known);
    return words;
}

// The four marks of automatic mail are patterns of the same bits, ORed: 1011 forwarded, 1110 replied, 1000 a bulk
// sender that wants no replies, 1010 a mailer daemon. 0001 is forwarding's own bit and 0100 replying's; what else
// was meant beside these two cannot be told any more.
void add_automatic(Words& words, std::int64_t flags) {
    const std::int64_t marks = flags >> 12 & 15;
    if ((marks & 1) != 0) words.emplace_back("auto-forwarded");
    if ((marks & 4) != 0) words.emplace_back("auto-replied");
    if (marks == 10) words.emplace_back("from a mailer daemon");
    if (marks == 8) words.emplace_back("no replies to bulk mail");
    if (marks == 2) add_rest(words, 0x2000, 0);
}

tm parts_of(std::int64_t seconds, std::int64_t zone) {
    const std::time_t local = seconds + zone * 60;
    tm parts{};
    if (gmtime_r(&local, &parts) == nullptr) parts = tm{};
    return parts;
}

std::string zone_text(std::int64_t zone) {
    const std::int64_t minutes = zone < 0 ? -zone : zone;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%c%02lld:%02lld", zone < 0 ? '-' : '+',
                  static_cast<long long>(minutes / 60), static_cast<long long>(minutes % 60));
    return text.data();
}

std::string date_text(const char* format, std::int64_t seconds, std::int64_t zone) {
    const tm parts = parts_of(seconds, zone);
    std::array<char, 96> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), format, &parts);
    return {text.data(), length};
}

}  // namespace

Words spell_class(std::int64_t value) {
    Words words;
    add(words, kClasses, value, "class");
    return words;
}

Words spell_message_type(std::int64_t value) {
    Words words;
    add(words, kMessageTypes, value, "type");
    return words;
}

Words spell_priority(std::int64_t value) {
    Words words;
    add(words, kPriorities, value, "priority");
    return words;
}

Words spell_header_flags(std::int64_t value) {
    Words words;
    add(words, kPriorities, value & 7, "priority");
    add(words, kSensitivities, value >> 3 & 7, "sensitivity");
    add(words, kImportances, value >> 6 & 7, "importance");
    add_automatic(words, value);
    if ((value & 0x0400) != 0) words.emplace_back("content goes back with reports");
    add_rest(words, value, 0xF5FF);
    return words;
}

std::string spell_category(std::int64_t recipient_flags) {
    const std::int64_t category = recipient_flags >> 5 & 7;
    const Word* word = find(kCategories, category);
    return word == nullptr ? "category " + std::to_string(category) : std::string(word->text);
}

Words spell_recipient_flags(std::int64_t value) {
    Words words{spell_category(value)};
    Words level;
    add(level, kAckLevels, value & 15, "level");
    for (const std::string& word : level) words.push_back("acknowledge " + word);
    if ((value & 0x2000) != 0) words.emplace_back("no acknowledgement of delivery");
    if ((value & 0x8000) != 0) words.emplace_back("disposition notification wanted");
    if ((value & 0x1000) != 0) words.emplace_back("reply requested");
    if ((value & 0x0010) != 0) words.emplace_back("no non-delivery report");
    add_rest(words, value & 0xFFFF, 0xB0FF);
    return words;
}

Words spell_acknowledgement(std::int64_t value) {
    Words words;
    add(words, kOutcomes, value & 15, "level");
    add(words, kSubLevels, value >> 4 & 7, "sub-level");
    if ((value & 128) != 0) words.emplace_back("sent by hand");
    add_rest(words, value & 0xFFFF, 0xFF);
    return words;
}

std::string_view spell_outcome(std::int64_t value) {
    const Word* word = find(kOutcomes, value & 15);
    return word == nullptr ? std::string_view() : word->text;
}

// A detail of 10 or more looks like the next subject; the subject is told as far as it can be known.
Words spell_reason(std::int64_t value) {
    Words words;
    if (const Word* word = find(kReasons, value)) words.emplace_back(word->text);
    std::string text = "reason " + std::to_string(value);
    const std::int64_t subject = (value - kStatusBase) / 10;
    if (value > kStatusBase && subject < static_cast<std::int64_t>(kStatusSubjects.size()))
        text += " (status x." + std::to_string(subject) + '.' + std::to_string((value - kStatusBase) % 10) + ", " +
                std::string(kStatusSubjects[static_cast<std::size_t>(subject)]) + ')';
    words.push_back(std::move(text));
    return words;
}

Words spell_list_flags(std::int64_t value) {
    constexpr Flag flags[] = {{1, "no blind copies"}};
    return spell_flags(value, flags);
}

// 0x01 and 0x20 mark a superseded alternative together; 2 is the message's own list of names.
Words spell_content_flags(std::int64_t value) {
    constexpr Flag flags[] = {{0x21, "hidden: a richer alternative follows"}, {2, "of the message itself"}};
    return spell_flags(value, flags);
}

Words spell_package_flags(std::int64_t value) {
    constexpr Flag flags[] = {{2, "parallel"}, {4, "signed"}, {0x18, "hidden: a richer alternative follows"}};
    return spell_flags(value, flags);
}

// 3 is all the gateway writes.
Words spell_package_type(std::int64_t value) {
    constexpr Word types[] = {{3, ""}};
    Words words;
    add(words, types, value, "type");
    return words;
}

std::string_view spell_file_code(std::int64_t code) {
    if (code >= kFirstPropertyPart && code <= kLastPropertyPart) return "property part";
    for (const FileCode& row : kFileCodes)
        if (row.value == code) return row.text;
    return {};
}

bool is_text_code(std::int64_t code) {
    if (code >= kFirstPropertyPart && code <= kLastPropertyPart) return true;
    return std::any_of(std::begin(kFileCodes), std::end(kFileCodes),
                       [&](const FileCode& row) { return row.value == code && row.readable; });
}

std::string spell_date(std::int64_t seconds, std::int64_t zone) {
    // The day's name by hand: strftime would take it from the locale.
    constexpr std::array<std::string_view, 7> days = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    const tm parts = parts_of(seconds, zone);
    return std::string(days[static_cast<std::size_t>(parts.tm_wday)]) +
           date_text(" %Y-%m-%d %H:%M:%S ", seconds, zone) + zone_text(zone);
}

std::string iso_date(std::int64_t seconds, std::int64_t zone) {
    return date_text("%Y-%m-%dT%H:%M:%S", seconds, zone) + zone_text(zone);
}

}  // namespace morvane
