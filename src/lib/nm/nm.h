// Native O/R names in text form.
//
//   name    = *( delimiter keyword "=" value )     fields in ascending order of number; no field: the empty text
//   value   = *( byte / "\" delimiter / "\" "\" )  a delimiter or a backslash inside a value has a backslash before it
//
// The delimiter is one byte for the whole mail system, "/" unless "~/sys/config" says otherwise. A name is read with
// tolerance: keywords in any case, fields in any order (the last of two equal ones holds), pieces that are no field are
// passed over, an empty value is no field. What is written is always in the form above.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// Longest name that is written anywhere, in bytes: a longer one is cut there.
inline constexpr std::size_t kNativeNameLimit = 4080;

// Numbers of the fields. They stand in other programs' tables: never renumbered.
enum nm_Field : int {
    kNmCountry = 1,
    kNmAdministrationDomain = 2,
    kNmPrivateDomain = 3,
    kNmOrganisation = 4,
    kNmUnit1 = 5,
    kNmUnit2 = 6,
    kNmUnit3 = 7,
    kNmUnit4 = 8,
    kNmSurname = 9,
    kNmGivenName = 10,
    kNmInitials = 11,
    kNmGeneration = 12,
    kNmCommonName = 13,
    kNmRfc822 = 20,  // an Internet address in the printable form of RFC 2156
    kNmInternetAddress = 130,
};

struct nm_FieldRow {
    int number;
    std::string_view keyword;
};

// Every field, in ascending order of number.
inline constexpr auto kNmFields = std::to_array<nm_FieldRow>({
    {kNmCountry, "C"},
    {kNmAdministrationDomain, "A"},
    {kNmPrivateDomain, "P"},
    {kNmOrganisation, "O"},
    {kNmUnit1, "OU1"},
    {kNmUnit2, "OU2"},
    {kNmUnit3, "OU3"},
    {kNmUnit4, "OU4"},
    {kNmSurname, "S"},
    {kNmGivenName, "G"},
    {kNmInitials, "I"},
    {kNmGeneration, "GQ"},
    {kNmCommonName, "CN"},
    {kNmRfc822, "DD.RFC-822"},
    {kNmInternetAddress, "IA"},
});

// Process-wide: the primary name delimiter.
struct nm_State {
    char inet_PrimDelim = '/';
};
nm_State& nm_state();
void nm_reset();

// Where the fields of one name stand in its text. Belongs to the text it was made from and to the delimiter of that
// time; nm_PutFieldStr keeps the two in step.
struct NM_PARSE_STATUS {
    struct Span {
        std::uint32_t begin = 0, end = 0;  // of the value, still escaped; equal: the name has no such field
        bool empty() const { return begin == end; }
    };
    std::array<Span, kNmFields.size()> fields{};  // by row of kNmFields
    bool canonical = true;                        // the text is exactly what would be written
};

// Reads a name for looking at or editing its fields.
NM_PARSE_STATUS nm_ParseORN(std::string_view pORN);

// The value of field `number`, its backslashes resolved; empty when the name has no such field.
std::string nm_get_field(std::string_view pORN, const NM_PARSE_STATUS& status, int number);
bool nm_has_field(const NM_PARSE_STATUS& status, int number);

// Sets field `number` of the name to `text` up to its first NUL; an empty text removes the field, an unknown number
// changes nothing. The name is in canonical form afterwards and at most kNativeNameLimit bytes long.
void nm_PutFieldStr(std::string& pORN, NM_PARSE_STATUS& status, int number, std::string_view text);

// Writes a name field by field, in ascending order of number: the quick way to make one. Empty values are left out.
class nm_Writer {
public:
    explicit nm_Writer(std::string& out) : out_(out), delimiter_(nm_state().inet_PrimDelim) { out_.clear(); }
    void put(int number, std::string_view value);
    // Begins a field whose value is then given byte by byte.
    void begin(int number);
    void add(char byte) {
        if (byte == delimiter_ || byte == '\\') out_.push_back('\\');
        out_.push_back(byte);
    }
    void add(std::string_view bytes);
    // Cuts the name at its bound. Call it last.
    void finish() {
        if (out_.size() > kNativeNameLimit) out_.resize(kNativeNameLimit);
    }

private:
    std::string& out_;
    char delimiter_;
};

// Are the names equal? They are when all their fields but CN and IA are, the case of ASCII letters ignored.
bool nm_CompareORNs(std::string_view a, std::string_view b);

// Writes into `key` a text that is the same for equal names and for no others: what a name is looked up by.
void nm_key(std::string_view pORN, std::string& key);

// A number that is the same for equal keys. It differs from process to process, so that nobody can choose names that
// fall together.
std::uint64_t nm_hash(std::string_view key);
