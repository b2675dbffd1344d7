// The directory: named directories of entries, each a native name with attributes, in "~/sys/directory.db".
//
// A directory is a table of that SQLite database, named as it is, with one row for each value of an attribute:
//
//   entry INTEGER      number of the entry; the order of import
//   place INTEGER      of the row in its entry, from 0; (entry, place) is the primary key
//   name TEXT          native name
//   attribute TEXT     } case of ASCII letters ignored, indexed together;
//   value TEXT         } an entry without attributes has one row in which both are NULL
//
// The database is opened by the first operation that needs it. Where there is none, every directory is empty:
// a session costs nothing then, not even a look at the disk before the first look-up.
//
// Failures of the database are escapes of the system group: EBUSY (locked for more than ten seconds), EILSEQ (not a
// database, or a damaged one), ENOSPC, EROFS, EIO.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

inline constexpr std::size_t kDirectoryNameLimit = 64;  // characters of a directory's name
inline constexpr std::size_t kAttributeLimit = 20;      // characters of an attribute's name that mapping can use

// Opens a session and gives its handle; 0 is no session. One is enough for a process; sessions share the database.
// The arguments are the service's: version 0, read access 1, no user, no password.
std::int16_t dr_OpenDir(int = 0, int = 1, std::string_view = {}, std::string_view = {});
// Closes a session (0: nothing) and gives the new handle, 0. With the last one the database is closed.
std::int16_t dr_CloseDir(std::int16_t DirHandle);

// Opens one directory of a session; 0 without a session. It need not exist (yet). Raises EINVAL for a name that no
// directory can have (see dr_good_name).
std::int16_t dr_open_directory(std::int16_t DirHandle, std::string_view name);
std::int16_t dr_close_directory(std::int16_t MapDirHandle);
// 1 to 64 bytes, no control character, no ":" (it parts directory and attribute in the mapping key), not beginning
// "sqlite_".
bool dr_good_name(std::string_view name);

// The native name of the first entry that was imported with `value` in `attribute`, case ignored; nothing when there
// is none or the handle is 0.
std::optional<std::string> dr_find_name(std::int16_t MapDirHandle, std::string_view attribute, std::string_view value);

// For the operator's tool. Names of directories, as those of attributes, are taken without regard to case.

struct dr_Entry {
    std::string name;  // native name
    std::vector<std::pair<std::string, std::string>>
        attributes;  // in the order of import, several values: several rows
};
// Every entry with `value` in `attribute`.
std::vector<dr_Entry> dr_lookup(std::string_view directory, std::string_view attribute, std::string_view value);

struct dr_Listing {
    std::string directory;
    std::uint64_t entries = 0;
};
std::vector<dr_Listing> dr_list();

enum class dr_Format {
    ldif,  // RFC 2849: content records, or change records that add; native name in the attribute morvaneName
    csv,   // RFC 4180: a header row, native name in the column "name"; columns of one name are several values
};
// What `text`, the beginning of a file, is in: CSV when its first line that is no comment holds a comma before a colon.
dr_Format dr_guess_format(std::string_view text);

struct dr_ImportResult {
    std::uint64_t entries = 0;  // written
    std::uint64_t skipped = 0;  // without a native name
};
// Reads entries into a directory, in one transaction: all or none. An entry takes the place of those with the same
// native name; `replace` empties the directory first. Holds one entry at a time. Raises EINVAL with "line N: why" for
// text that is not in the format or a native name without a field, and what a database can raise.
dr_ImportResult dr_import(std::string_view directory, std::istream& in, dr_Format format, bool replace = false);
// Writes the entries in a form that dr_import reads back to the same ones. A directory that does not exist is empty.
void dr_export(std::string_view directory, std::ostream& out, dr_Format format);

// Closes the database and forgets every handle; for tests and for a change of home.
void dr_reset();
