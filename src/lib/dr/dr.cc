// Sessions, look-ups, import and export.
#include "dr/dr.h"

#include <algorithm>
#include <cerrno>
#include <istream>
#include <limits>
#include <ostream>

#include "dr/database.h"
#include "dr/exchange.h"
#include "dstring/ascii.h"
#include "er/er.h"
#include "nm/nm.h"

namespace {

using dr::Database;
using dr::quoted;
using dr::Statement;

// A directory that is open for look-ups. Its statement is prepared by the first one that finds the directory there.
struct OpenDirectory {
    std::string name;
    Statement find;
};

struct State {
    int sessions = 0;
    std::optional<Database> database;
    std::vector<std::optional<OpenDirectory>> directories;  // handle 1 is the first
};

State& state() {
    static State one;
    return one;
}

// The database, opened now if it was not; nothing where there is none.
Database* database(bool create = false) {
    State& all = state();
    if (!all.database) all.database = Database::open(create);
    return all.database ? &*all.database : nullptr;
}

void close_database() {
    for (auto& directory : state().directories)
        if (directory) directory->find = {};
    state().database.reset();
}

void check_name(std::string_view name) {
    if (!dr_good_name(name)) er_SystemEscape(EINVAL, "directory name: " + std::string(name));
}

std::string select(std::string_view what, std::string_view table, std::string_view where) {
    return std::string("SELECT ").append(what).append(" FROM ").append(quoted(table)).append(" ").append(where);
}

// The directory's table in the database, made when it is not there. Gives its name.
std::string make_table(Database& data, std::string_view directory) {
    if (auto table = data.table(directory)) return *std::move(table);
    const std::string table(directory);
    data.execute("CREATE TABLE " + quoted(table) +
                 " (entry INTEGER NOT NULL, place INTEGER NOT NULL, name TEXT NOT NULL, attribute TEXT COLLATE NOCASE,"
                 " value TEXT COLLATE NOCASE, PRIMARY KEY (entry, place)) WITHOUT ROWID");
    data.execute("CREATE INDEX " + quoted(table + ":value") + " ON " + quoted(table) + " (attribute, value)");
    data.execute("CREATE INDEX " + quoted(table + ":name") + " ON " + quoted(table) + " (name)");
    return table;
}

// Writes entries behind those that a directory has.
class Importer {
public:
    Importer(Database& data, const std::string& table)
        : remove_(data.prepare("DELETE FROM " + quoted(table) + " WHERE name = ?1 AND entry <= ?2")),
          insert_(data.prepare("INSERT INTO " + quoted(table) + " VALUES (?1, ?2, ?3, ?4, ?5)")) {
        Statement last = data.prepare(select("coalesce(max(entry), 0)", table, ""));
        last.step();
        before_ = next_ = last.number(0);
    }
    void write(const dr_Entry& entry) {
        // Only what was there before goes: one import may give several entries one native name.
        remove_.bind(1, entry.name).bind(2, before_).run();
        ++next_;
        insert_.bind(1, next_).bind(3, entry.name);
        if (entry.attributes.empty()) insert_.bind(2, 0).bind_null(4).bind_null(5).run();
        std::int64_t place = 0;
        for (const auto& [attribute, value] : entry.attributes)
            insert_.bind(2, place++).bind(4, attribute).bind(5, value).run();
    }

private:
    Statement remove_, insert_;
    std::int64_t before_ = 0, next_ = 0;
};

// Reads the rows of a statement that gives entry, name, attribute, value in the order of entries.
class EntryRows {
public:
    explicit EntryRows(Statement& rows) : rows_(rows), have_(rows.step()) {}
    bool next(dr_Entry& entry) {
        if (!have_) return false;
        const std::int64_t number = rows_.number(0);
        entry = {std::string(rows_.text(1)), {}};
        for (; have_ && rows_.number(0) == number; have_ = rows_.step())
            if (!rows_.null(2)) entry.attributes.emplace_back(rows_.text(2), rows_.text(3));
        return true;
    }

private:
    Statement& rows_;
    bool have_;
};

std::vector<dr::Column> columns_of(Database& data, const std::string& table) {
    Statement rows = data.prepare(
        "SELECT attribute, max(n) FROM (SELECT attribute, count(*) AS n, min(place) AS p FROM " + quoted(table) +
        " WHERE attribute IS NOT NULL GROUP BY entry, attribute) GROUP BY attribute ORDER BY min(p), attribute");
    std::vector<dr::Column> columns;
    while (rows.step()) columns.emplace_back(rows.text(0), static_cast<std::uint64_t>(rows.number(1)));
    return columns;
}

bool has_a_field(std::string_view name) {
    const NM_PARSE_STATUS status = nm_ParseORN(name);
    return std::any_of(status.fields.begin(), status.fields.end(), [](const auto& span) { return !span.empty(); });
}

}  // namespace

std::int16_t dr_OpenDir(int, int, std::string_view, std::string_view) {
    ++state().sessions;
    return 1;
}

std::int16_t dr_CloseDir(std::int16_t DirHandle) {
    if (DirHandle == 0) return 0;
    State& all = state();
    all.sessions = std::max(0, all.sessions - 1);
    if (all.sessions == 0) close_database();
    return 0;
}

bool dr_good_name(std::string_view name) {
    if (name.empty() || name.size() > kDirectoryNameLimit || dstring_equal_ignoring_case(name.substr(0, 7), "sqlite_"))
        return false;
    return std::none_of(name.begin(), name.end(),
                        [](char c) { return c == ':' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

std::int16_t dr_open_directory(std::int16_t DirHandle, std::string_view name) {
    if (DirHandle == 0) return 0;
    check_name(name);
    auto& directories = state().directories;
    auto slot = std::find(directories.begin(), directories.end(), std::nullopt);
    if (slot == directories.end()) {
        if (directories.size() >= static_cast<std::size_t>(std::numeric_limits<std::int16_t>::max()))
            er_SystemEscape(EMFILE, "directories");
        slot = directories.emplace(slot);
    }
    slot->emplace(OpenDirectory{std::string(name), {}});
    return static_cast<std::int16_t>(slot - directories.begin() + 1);
}

std::int16_t dr_close_directory(std::int16_t MapDirHandle) {
    auto& directories = state().directories;
    if (MapDirHandle > 0 && static_cast<std::size_t>(MapDirHandle) <= directories.size())
        directories[static_cast<std::size_t>(MapDirHandle) - 1].reset();
    return 0;
}

std::optional<std::string> dr_find_name(std::int16_t MapDirHandle, std::string_view attribute, std::string_view value) {
    auto& directories = state().directories;
    if (MapDirHandle <= 0 || static_cast<std::size_t>(MapDirHandle) > directories.size()) return std::nullopt;
    auto& directory = directories[static_cast<std::size_t>(MapDirHandle) - 1];
    if (!directory) return std::nullopt;
    if (!directory->find) {
        Database* const data = database();
        if (data == nullptr) return std::nullopt;
        const auto table = data->table(directory->name);
        if (!table) return std::nullopt;
        directory->find =
            data->prepare(select("name", *table, "WHERE attribute = ?1 AND value = ?2 ORDER BY entry, place LIMIT 1"));
    }
    std::optional<std::string> found;
    if (directory->find.bind(1, attribute).bind(2, value).step()) found.emplace(directory->find.text(0));
    directory->find.reset();
    return found;
}

std::vector<dr_Entry> dr_lookup(std::string_view directory, std::string_view attribute, std::string_view value) {
    std::vector<dr_Entry> found;
    check_name(directory);
    Database* const data = database();
    const auto table = data != nullptr ? data->table(directory) : std::nullopt;
    if (!table) return found;
    const std::string entries = select("entry", *table, "WHERE attribute = ?1 AND value = ?2");
    Statement rows = data->prepare(
        select("entry, name, attribute, value", *table, "WHERE entry IN (" + entries + ") ORDER BY entry, place"));
    rows.bind(1, attribute).bind(2, value);
    EntryRows reader(rows);
    for (dr_Entry entry; reader.next(entry);) found.push_back(std::move(entry));
    return found;
}

std::vector<dr_Listing> dr_list() {
    std::vector<dr_Listing> listing;
    Database* const data = database();
    if (data == nullptr) return listing;
    Statement tables =
        data->prepare("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name COLLATE NOCASE");
    while (tables.step()) {
        const std::string table(tables.text(0));
        Statement count = data->prepare(select("count(*)", table, "WHERE place = 0"));
        count.step();
        listing.push_back({table, static_cast<std::uint64_t>(count.number(0))});
    }
    return listing;
}

dr_Format dr_guess_format(std::string_view text) {
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (line.empty() || line == "\r" || line.front() == '#') continue;
        const std::size_t colon = line.find(':'), comma = line.find(',');
        return comma < colon || colon == std::string_view::npos ? dr_Format::csv : dr_Format::ldif;
    }
    return dr_Format::ldif;
}

dr_ImportResult dr_import(std::string_view directory, std::istream& in, dr_Format format, bool replace) {
    check_name(directory);
    Database& data = *database(true);
    data.execute("PRAGMA cache_size = -65536");  // KiB: what outgrows it is written early, under an exclusive lock
    dr::Transaction transaction(data);
    const std::string table = make_table(data, directory);
    if (replace) data.execute("DELETE FROM " + quoted(table));

    dr_ImportResult result;
    {
        Importer importer(data, table);
        const auto reader = dr::make_reader(in, format);
        for (dr_Entry entry; reader->next(entry);) {
            if (entry.name.empty()) {
                ++result.skipped;
                continue;
            }
            if (!has_a_field(entry.name)) dr::refuse_line(reader->line(), "not a native name: " + entry.name);
            importer.write(entry);
            ++result.entries;
        }
        if (in.bad()) er_SystemEscape(EIO, "directory import");
    }
    transaction.commit();
    return result;
}

void dr_export(std::string_view directory, std::ostream& out, dr_Format format) {
    check_name(directory);
    Database* const data = database();
    const auto table = data != nullptr ? data->table(directory) : std::nullopt;
    std::vector<dr::Column> columns;
    if (table && format == dr_Format::csv) columns = columns_of(*data, *table);
    format == dr_Format::csv ? dr::write_csv_header(out, columns) : dr::write_ldif_header(out);
    if (!table) return;

    Statement rows = data->prepare(select("entry, name, attribute, value", *table, "ORDER BY entry, place"));
    EntryRows reader(rows);
    std::uint64_t number = 0;
    for (dr_Entry entry; reader.next(entry);) {
        ++number;
        format == dr_Format::csv ? dr::write_csv_entry(out, entry, columns) : dr::write_ldif_entry(out, entry, number);
    }
    out.flush();
    if (!out) er_SystemEscape(EIO, "directory export");
}

void dr_reset() {
    close_database();
    state() = State();
}
