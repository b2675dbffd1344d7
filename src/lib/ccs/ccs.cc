// The table of character sets: see ccs.h.
//
// Names are found by their key: lower case, letters and digits alone. A set is known by the keys of its native, MIME
// and iconv names and by the customary names in kAliases (IANA's, and those that mailers write).
//
// Four sets are read and written as the larger set that mail means by their name: text labelled GB2312 is GBK,
// Shift_JIS is code page 932, EUC-KR is UHC (code page 949) and EUC-JP has the rows of code page 51932. Whatever is in
// the smaller set is the same there, and nothing that arrives under these names is refused or lost for the label's
// sake.
#include "ccs/ccs.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "dstring/ascii.h"
#include "dstring/words.h"
#include "im/im.h"

namespace {

using enum ccs_Shape;

constexpr ccs_Descriptor row(std::string_view name, std::string_view mime, const char* iconv, ccs_Shape shape = single,
                             bool ascii = true, unsigned flags = 0) {
    return {name, mime, iconv, {name, name, name}, shape, ascii, flags};
}

// clang-format off
constexpr auto kSets = std::to_array<ccs_Descriptor>({
    row("IA5",        "US-ASCII",     "US-ASCII"),
    row("ISO8859_1",  "ISO-8859-1",   "ISO-8859-1"),
    row("ISO8859_2",  "ISO-8859-2",   "ISO-8859-2"),
    row("ISO8859_3",  "ISO-8859-3",   "ISO-8859-3"),
    row("ISO8859_4",  "ISO-8859-4",   "ISO-8859-4"),
    row("ISO8859_5",  "ISO-8859-5",   "ISO-8859-5"),
    row("ISO8859_6",  "ISO-8859-6",   "ISO-8859-6"),
    row("ISO8859_7",  "ISO-8859-7",   "ISO-8859-7"),
    row("ISO8859_8",  "ISO-8859-8",   "ISO-8859-8"),
    row("ISO8859_9",  "ISO-8859-9",   "ISO-8859-9"),
    row("ISO8859_10", "ISO-8859-10",  "ISO-8859-10"),
    row("ISO8859_11", "ISO-8859-11",  "ISO-8859-11"),
    row("ISO8859_13", "ISO-8859-13",  "ISO-8859-13"),
    row("ISO8859_14", "ISO-8859-14",  "ISO-8859-14"),
    row("ISO8859_15", "ISO-8859-15",  "ISO-8859-15"),
    row("ISO8859_16", "ISO-8859-16",  "ISO-8859-16"),
    row("UTF8",       "UTF-8",        "UTF-8",       utf8),
    row("UTF7",       "UTF-7",        "UTF-7",       shifted, false),
    row("ISO2022JP",  "ISO-2022-JP",  "ISO-2022-JP", shifted),
    row("SJIS",       "Shift_JIS",    "CP932",       sjis),
    row("EUCJP",      "EUC-JP",       "EUC-JP-MS",   eucjp),
    row("GB2312",     "GB2312",       "GBK",         lead81),
    row("GBK",        "GBK",          "GBK",         lead81),
    row("GB18030",    "GB18030",      "GB18030",     gb18030),
    row("HZGB2312",   "HZ-GB-2312",   "HZ-GB-2312",  shifted, false),  // no iconv has it here: cvc reads it itself
    row("ISO2022CN",  "ISO-2022-CN",  "ISO-2022-CN", shifted),
    row("KSC5601",    "EUC-KR",       "UHC",         lead81),
    row("ISO2022KR",  "ISO-2022-KR",  "ISO-2022-KR", shifted),
    row("BIG5",       "Big5",         "BIG5",        lead81),
    row("KOI8_R",     "KOI8-R",       "KOI8-R"),
    row("KOI8_U",     "KOI8-U",       "KOI8-U"),
    row("WIN1250",    "windows-1250", "CP1250"),
    row("WIN1251",    "windows-1251", "CP1251"),
    row("WIN1252",    "windows-1252", "CP1252"),
    row("WIN1253",    "windows-1253", "CP1253"),
    row("WIN1254",    "windows-1254", "CP1254"),
    row("WIN1255",    "windows-1255", "CP1255"),
    row("WIN1256",    "windows-1256", "CP1256"),
    row("WIN1257",    "windows-1257", "CP1257"),
    row("WIN1258",    "windows-1258", "CP1258"),
    row("T61",        "T.61-8bit",    "T.61-8BIT",   single,  false, kInterchangeSet),  // "#" is another there
});

struct Alias {
    std::string_view key;
    std::string_view set;
};

// Keys beyond those of the rows' own names.
constexpr auto kAliases = std::to_array<Alias>({
    {"646", "IA5"}, {"ansix341968", "IA5"}, {"ansix341986", "IA5"}, {"ascii", "IA5"}, {"cp367", "IA5"},
    {"csascii", "IA5"}, {"ibm367", "IA5"}, {"iso646irv1991", "IA5"}, {"iso646us", "IA5"}, {"isoir6", "IA5"},
    {"us", "IA5"},
    {"88591", "ISO8859_1"}, {"cp819", "ISO8859_1"}, {"csisolatin1", "ISO8859_1"}, {"ibm819", "ISO8859_1"},
    {"iso885911987", "ISO8859_1"}, {"isoir100", "ISO8859_1"}, {"l1", "ISO8859_1"}, {"latin1", "ISO8859_1"},
    {"88592", "ISO8859_2"}, {"csisolatin2", "ISO8859_2"}, {"iso885921987", "ISO8859_2"}, {"isoir101", "ISO8859_2"},
    {"l2", "ISO8859_2"}, {"latin2", "ISO8859_2"},
    {"csisolatin3", "ISO8859_3"}, {"iso885931988", "ISO8859_3"}, {"isoir109", "ISO8859_3"}, {"l3", "ISO8859_3"},
    {"latin3", "ISO8859_3"},
    {"csisolatin4", "ISO8859_4"}, {"iso885941988", "ISO8859_4"}, {"isoir110", "ISO8859_4"}, {"l4", "ISO8859_4"},
    {"latin4", "ISO8859_4"},
    {"csisolatincyrillic", "ISO8859_5"}, {"cyrillic", "ISO8859_5"}, {"iso885951988", "ISO8859_5"},
    {"isoir144", "ISO8859_5"},
    {"arabic", "ISO8859_6"}, {"asmo708", "ISO8859_6"}, {"csisolatinarabic", "ISO8859_6"}, {"ecma114", "ISO8859_6"},
    {"iso885961987", "ISO8859_6"}, {"iso88596e", "ISO8859_6"}, {"iso88596i", "ISO8859_6"}, {"isoir127", "ISO8859_6"},
    {"csisolatingreek", "ISO8859_7"}, {"ecma118", "ISO8859_7"}, {"elot928", "ISO8859_7"}, {"greek", "ISO8859_7"},
    {"greek8", "ISO8859_7"}, {"iso885971987", "ISO8859_7"}, {"iso885972003", "ISO8859_7"}, {"isoir126", "ISO8859_7"},
    {"csisolatinhebrew", "ISO8859_8"}, {"hebrew", "ISO8859_8"}, {"iso885981988", "ISO8859_8"},
    {"iso88598e", "ISO8859_8"},
    {"iso88598i", "ISO8859_8"}, {"isoir138", "ISO8859_8"},
    {"csisolatin5", "ISO8859_9"}, {"iso885991989", "ISO8859_9"}, {"isoir148", "ISO8859_9"}, {"l5", "ISO8859_9"},
    {"latin5", "ISO8859_9"},
    {"csisolatin6", "ISO8859_10"}, {"iso8859101992", "ISO8859_10"}, {"isoir157", "ISO8859_10"}, {"l6", "ISO8859_10"},
    {"latin6", "ISO8859_10"},
    {"cstis620", "ISO8859_11"}, {"iso8859112001", "ISO8859_11"}, {"isoir166", "ISO8859_11"}, {"tis620", "ISO8859_11"},
    {"tis6200", "ISO8859_11"}, {"tis62025331", "ISO8859_11"}, {"tis6202533", "ISO8859_11"},
    {"isoir179", "ISO8859_13"}, {"l7", "ISO8859_13"}, {"latin7", "ISO8859_13"},
    {"iso8859141998", "ISO8859_14"}, {"isoceltic", "ISO8859_14"}, {"isoir199", "ISO8859_14"}, {"l8", "ISO8859_14"},
    {"latin8", "ISO8859_14"},
    {"csiso885915", "ISO8859_15"}, {"isoir203", "ISO8859_15"}, {"l9", "ISO8859_15"}, {"latin9", "ISO8859_15"},
    {"iso8859162001", "ISO8859_16"}, {"isoir226", "ISO8859_16"}, {"l10", "ISO8859_16"}, {"latin10", "ISO8859_16"},
    {"csutf8", "UTF8"}, {"unicode11utf8", "UTF8"}, {"unicode20utf8", "UTF8"}, {"utf8mb4", "UTF8"},
    {"xunicode20utf8", "UTF8"},
    {"csutf7", "UTF7"}, {"unicode11utf7", "UTF7"}, {"xunicode20utf7", "UTF7"},
    {"csiso2022jp", "ISO2022JP"},
    {"cp932", "SJIS"}, {"cp943", "SJIS"}, {"csshiftjis", "SJIS"}, {"cswindows31j", "SJIS"}, {"ms932", "SJIS"},
    {"mskanji", "SJIS"}, {"windows31j", "SJIS"}, {"windows932", "SJIS"}, {"xmscp932", "SJIS"}, {"xsjis", "SJIS"},
    {"cp51932", "EUCJP"}, {"cseucpkdfmtjapanese", "EUCJP"}, {"eucjp", "EUCJP"}, {"ujis", "EUCJP"}, {"xeucjp", "EUCJP"},
    {"chinese", "GB2312"}, {"cngb", "GB2312"}, {"csgb2312", "GB2312"}, {"csiso58gb231280", "GB2312"},
    {"euccn", "GB2312"},
    {"gb231280", "GB2312"}, {"isoir58", "GB2312"}, {"xeuccn", "GB2312"}, {"xgb2312", "GB2312"},
    {"cp936", "GBK"}, {"csgbk", "GBK"}, {"ms936", "GBK"}, {"windows936", "GBK"}, {"xgbk", "GBK"},
    {"cp54936", "GB18030"}, {"csgb18030", "GB18030"}, {"gb180302000", "GB18030"}, {"gb180302005", "GB18030"},
    {"cshzgb2312", "HZGB2312"}, {"hz", "HZGB2312"},
    {"csiso2022cn", "ISO2022CN"},
    {"cp949", "KSC5601"}, {"cseuckr", "KSC5601"}, {"csksc56011987", "KSC5601"}, {"iso885949", "KSC5601"},
    {"isoir149", "KSC5601"}, {"korean", "KSC5601"}, {"ksc5601", "KSC5601"}, {"ksc56011987", "KSC5601"},
    {"ksc56011989", "KSC5601"}, {"ksx1001", "KSC5601"}, {"ms949", "KSC5601"}, {"windows949", "KSC5601"},
    {"xeuckr", "KSC5601"},
    {"xwindows949", "KSC5601"},
    {"csiso2022kr", "ISO2022KR"},
    {"bigfive", "BIG5"}, {"cnbig5", "BIG5"}, {"cp950", "BIG5"}, {"csbig5", "BIG5"}, {"windows950", "BIG5"},
    {"xxbig5", "BIG5"},
    {"cskoi8r", "KOI8_R"}, {"koi8", "KOI8_R"}, {"xkoi8r", "KOI8_R"},
    {"cskoi8u", "KOI8_U"}, {"koi8ru", "KOI8_U"},
    {"cswindows1250", "WIN1250"}, {"xcp1250", "WIN1250"},
    {"cswindows1251", "WIN1251"}, {"xcp1251", "WIN1251"},
    {"cswindows1252", "WIN1252"}, {"msansi", "WIN1252"}, {"xansi", "WIN1252"}, {"xcp1252", "WIN1252"},
    {"cswindows1253", "WIN1253"}, {"xcp1253", "WIN1253"},
    {"cswindows1254", "WIN1254"}, {"xcp1254", "WIN1254"},
    {"cswindows1255", "WIN1255"}, {"xcp1255", "WIN1255"},
    {"cswindows1256", "WIN1256"}, {"xcp1256", "WIN1256"},
    {"cswindows1257", "WIN1257"}, {"xcp1257", "WIN1257"},
    {"cswindows1258", "WIN1258"}, {"xcp1258", "WIN1258"},
    {"isoir103", "T61"}, {"t618bit", "T61"},
});
// clang-format on

constexpr std::size_t kKeyLimit = 40;  // no known name is longer

// The letters and digits of a name, in lower case.
struct Key {
    std::array<char, kKeyLimit> text{};
    std::size_t length = 0;
    constexpr bool operator<(const Key& other) const { return view() < other.view(); }
    constexpr std::string_view view() const { return {text.data(), length}; }
};

constexpr Key key_of(std::string_view name) {
    Key key;
    for (const char raw : name) {
        const char c = dstring_lower(raw);
        if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'))) continue;
        if (key.length == kKeyLimit) return {};
        key.text[key.length++] = c;
    }
    return key;
}

struct Entry {
    Key key;
    std::uint8_t set = 0;
    constexpr bool operator<(const Entry& other) const { return key < other.key; }
};

constexpr std::size_t row_of(std::string_view native) {
    std::size_t at = 0;
    while (kSets.at(at).name != native) ++at;
    return at;
}

// Native and MIME names of all rows, iconv names of those that no other row has, and the aliases: sorted by key.
constexpr std::size_t kNames = kSets.size() * 3 + kAliases.size();

constexpr bool is_shared_iconv(std::size_t at) {  // "GBK" names GBK, not GB2312
    for (std::size_t other = 0; other < kSets.size(); ++other)
        if (other != at && key_of(kSets[other].name).view() == key_of(kSets[at].iconv).view()) return true;
    return false;
}

constexpr auto make_entries() {
    std::array<Entry, kNames> all{};
    std::size_t count = 0;
    for (std::size_t at = 0; at < kSets.size(); ++at) {
        const auto set = static_cast<std::uint8_t>(at);
        all[count++] = {key_of(kSets[at].name), set};
        all[count++] = {key_of(kSets[at].mime), set};
        all[count++] = {is_shared_iconv(at) ? key_of(kSets[at].name) : key_of(kSets[at].iconv), set};
    }
    for (const Alias& alias : kAliases)
        all[count++] = {key_of(alias.key), static_cast<std::uint8_t>(row_of(alias.set))};
    std::sort(all.begin(), all.end());
    return all;
}

constexpr auto kEntries = make_entries();

constexpr bool keys_are_unambiguous() {
    for (std::size_t at = 1; at < kEntries.size(); ++at)
        if (kEntries[at - 1].key.view() == kEntries[at].key.view() && kEntries[at - 1].set != kEntries[at].set)
            return false;
    return kEntries.front().key.length > 0;
}
static_assert(keys_are_unambiguous());

constexpr bool aliases_are_keys() {
    for (const Alias& alias : kAliases)
        if (key_of(alias.key).view() != alias.key) return false;
    return true;
}
static_assert(aliases_are_keys());

constexpr bool names_fit() {
    for (const ccs_Descriptor& set : kSets)
        for (const std::string_view name : {set.name, set.internal[0], set.internal[1], set.internal[2]})
            if (name.empty() || name.size() > kSetNameLimit) return false;
    return true;
}
static_assert(names_fit());

unsigned char byte_at(std::string_view text, std::size_t at) { return static_cast<unsigned char>(text[at]); }

// A second byte of a pair in the sets with a lead byte: anything that no control character is.
bool is_trail(unsigned char byte) { return byte >= 0x40 && byte != 0x7F && byte != 0xFF; }

std::size_t utf8_length(std::string_view text) {
    const unsigned char lead = byte_at(text, 0);
    const std::size_t wanted = lead < 0xC2 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 1;
    if (wanted > text.size()) return 1;
    for (std::size_t at = 1; at < wanted; ++at)
        if ((byte_at(text, at) & 0xC0) != 0x80) return 1;
    return wanted;
}

std::size_t eucjp_length(std::string_view text) {
    const unsigned char lead = byte_at(text, 0);
    const std::size_t wanted = lead == 0x8F ? 3 : lead == 0x8E || lead >= 0xA1 ? 2 : 1;
    if (wanted > text.size()) return 1;
    for (std::size_t at = 1; at < wanted; ++at)
        if (byte_at(text, at) < 0xA1) return 1;
    return wanted;
}

std::size_t gb18030_length(std::string_view text) {
    if (byte_at(text, 0) < 0x81 || text.size() < 2) return 1;
    if (is_trail(byte_at(text, 1))) return 2;
    const bool digit = byte_at(text, 1) >= '0' && byte_at(text, 1) <= '9';
    if (!digit || text.size() < 4) return 1;
    return byte_at(text, 2) >= 0x81 && byte_at(text, 3) >= '0' && byte_at(text, 3) <= '9' ? 4 : 1;
}

bool leads_sjis(unsigned char byte) { return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC); }

std::size_t pair_length(std::string_view text, bool leads, bool follows) {
    return text.size() >= 2 && leads && follows ? 2 : 1;
}

}  // namespace

const ccs_Descriptor* ccs_GetCSDescriptor2(std::string_view name, int) {
    const Key key = key_of(name);
    if (key.length == 0) return nullptr;
    const auto* found = std::lower_bound(kEntries.begin(), kEntries.end(), Entry{key});
    return found != kEntries.end() && found->key.view() == key.view() ? &kSets[found->set] : nullptr;
}

const ccs_Descriptor* ccs_GetCSDescriptor(std::string_view name) { return ccs_GetCSDescriptor2(name); }

std::string_view ccs_GetInternalCharset(std::string_view name, int selector) {
    const ccs_Descriptor* set = ccs_GetCSDescriptor2(name);
    if (set == nullptr || selector < 0 || selector > 2) return name;
    return set->internal[static_cast<std::size_t>(selector)];
}

std::string_view ccs_native_name(std::string_view name) {
    const ccs_Descriptor* set = ccs_GetCSDescriptor2(name);
    return set == nullptr ? name : set->name;
}

bool ccs_equal_ignoring_case(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return dstring_lower(a) == dstring_lower(b); });
}

bool ccs_same_set(std::string_view left, std::string_view right) {
    if (left == right) return true;
    const ccs_Descriptor* set = ccs_GetCSDescriptor2(left);
    return set == nullptr ? ccs_equal_ignoring_case(left, right) : set == ccs_GetCSDescriptor2(right);
}

// The byte that ends the prefix is told from the word that it is in: in text with accents a prefix is a few words long,
// and looking at the last one byte by byte would cost more than all before it.
std::size_t ccs_ascii_prefix(std::string_view text) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    const char* const begin = text.data();
    const char* const end = begin + text.size();
    const char* at = begin;
    for (; end - at >= 32; at += 32) {  // four words at a time, and one test
        std::array<std::uint64_t, 4> words;
        std::memcpy(words.data(), at, sizeof words);
        if (((words[0] | words[1] | words[2] | words[3]) & kHighBits) != 0) break;
    }
    for (; end - at >= 8; at += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, at, sizeof word);
        if ((word & kHighBits) != 0)
            return static_cast<std::size_t>(at - begin) + dstring_bytes_unmarked(word & kHighBits);
    }
    while (at != end && static_cast<unsigned char>(*at) < 0x80) ++at;
    return static_cast<std::size_t>(at - begin);
}

bool ccs_Is7BitAscii(std::string_view text) { return ccs_ascii_prefix(text) == text.size(); }

bool ccs_Is7BitAsciiFile(const im_Item& item) {
    constexpr std::size_t kBlock = std::size_t{64} << 10;
    const auto block = std::make_unique_for_overwrite<char[]>(std::min<std::uint64_t>(kBlock, item.size() + 1));
    std::uint64_t at = 0;
    while (at < item.size()) {
        const std::size_t got = item.read(at, block.get(), std::min<std::uint64_t>(kBlock, item.size() - at));
        if (got == 0) return true;
        if (!ccs_Is7BitAscii({block.get(), got})) return false;
        at += got;
    }
    return true;
}

std::size_t ccs_character_length(ccs_Shape shape, std::string_view text) {
    const unsigned char lead = byte_at(text, 0);
    if (lead < 0x80) return 1;
    const unsigned char next = text.size() > 1 ? byte_at(text, 1) : 0;
    switch (shape) {
        case utf8: return utf8_length(text);
        case euc: return pair_length(text, lead >= 0xA1, next >= 0xA1);
        case eucjp: return eucjp_length(text);
        case sjis: return pair_length(text, leads_sjis(lead), is_trail(next));
        case lead81: return pair_length(text, lead >= 0x81 && lead != 0xFF, is_trail(next));
        case gb18030: return gb18030_length(text);
        case single:
        case shifted: break;
    }
    return 1;
}

ccs_Table ccs_sets() { return {kSets.data(), kSets.size()}; }
