// Names of character sets: the one table that ties a native name to its MIME name (what is written in a charset
// parameter or an encoded word), its name for iconv(3) and its internal names. The table is a constant: it
// costs nothing at start-up, and a look-up allocates nothing.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

class im_Item;  // im/im.h

// How the bytes of a set make characters.
enum class ccs_Shape : std::uint8_t {
    single,   // one byte, one character
    utf8,     // RFC 3629
    euc,      // two bytes with the high bit make one
    eucjp,    // the same, and 0x8E xx, 0x8F xx xx
    sjis,     // 0x81-0x9F and 0xE0-0xFC lead, half-width kana are single
    lead81,   // 0x81-0xFE lead one byte of any value from 0x40 (GBK, Big5, UHC)
    gb18030,  // as lead81, or four bytes when the second is a digit
    shifted,  // 7-bit with shifts or escapes: no byte can be read without what stands before it
};

inline constexpr std::size_t kSetNameLimit = 14;  // characters of a native name wherever one is kept
inline constexpr unsigned kInterchangeSet = 64;   // a set of interchange (T.61): text in it is never re-labelled

struct ccs_Descriptor {
    std::string_view name;                     // native
    std::string_view mime;                     // for labels
    const char* iconv;                         // the set that iconv(3) reads and writes for it
    std::array<std::string_view, 3> internal;  // by selector, 0 to 2
    ccs_Shape shape;
    bool ascii;      // a printable 7-bit byte always is the ASCII character
    unsigned flags;  // kInterchangeSet

    // Can 7-bit text of this set, whatever its bytes, be taken as ASCII?
    constexpr bool extends_ascii() const { return ascii && shape != ccs_Shape::shifted; }
};

inline constexpr std::string_view kAsciiSet = "IA5";
inline constexpr std::string_view kLatin1Set = "ISO8859_1";
inline constexpr std::string_view kUtf8Set = "UTF8";
inline constexpr std::string_view kHzSet = "HZGB2312";

// The set of a native, MIME, iconv or customary name; null when it is not known. Case and punctuation are
// ignored: "iso_8859-1", "Latin1" and "ISO8859_1" are one set. The view in the descriptor lives for ever. The second
// argument is the service's interface version and is 2.
const ccs_Descriptor* ccs_GetCSDescriptor2(std::string_view name, int version = 2);
const ccs_Descriptor* ccs_GetCSDescriptor(std::string_view name);

// The internal name of a set for selector 0, 1 or 2; for a set that is not known, or another selector, the name itself.
std::string_view ccs_GetInternalCharset(std::string_view name, int selector);

// The native name of a set; a name that is not known stays as it is.
std::string_view ccs_native_name(std::string_view name);
// Do two names mean one set? Unknown names are compared without regard to case.
bool ccs_same_set(std::string_view left, std::string_view right);
// ASCII letters compared without regard to case, whatever the locale.
bool ccs_equal_ignoring_case(std::string_view left, std::string_view right);

// Is every byte below 128? The first `limit` bytes that are.
bool ccs_Is7BitAscii(std::string_view text);
std::size_t ccs_ascii_prefix(std::string_view text);
// The same for a whole item, which is read in blocks up to its first 8-bit byte. Raises what reading it raises.
bool ccs_Is7BitAsciiFile(const im_Item& item);

// Bytes of the first character of `text` (not empty) in a set that is not shifted: at least 1, at most all of
// it. A byte that begins no character, or one that is cut off, is a character of its own.
std::size_t ccs_character_length(ccs_Shape shape, std::string_view text);

// All rows, for tests and tools.
struct ccs_Table {
    const ccs_Descriptor* first;
    std::size_t count;
    const ccs_Descriptor* begin() const { return first; }
    const ccs_Descriptor* end() const { return first + count; }
};
ccs_Table ccs_sets();
