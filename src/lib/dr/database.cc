// SQLite behind handles.
#include "dr/database.h"

#include <fcntl.h>

#include <cerrno>

#include "dr/sqlite.h"
#include "er/er.h"
#include "os/os.h"

namespace dr {

namespace {

constexpr std::string_view kPath = "~/sys/directory.db";
constexpr int kPatienceMs = 10'000;  // an import in progress locks the database while it commits

int reason_of(int result) {
    switch (result & 0xFF) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED: return EBUSY;
        case SQLITE_NOTADB:
        case SQLITE_CORRUPT:
        case SQLITE_FORMAT: return EILSEQ;
        case SQLITE_FULL: return ENOSPC;
        case SQLITE_READONLY: return EROFS;
        case SQLITE_NOMEM: return ENOMEM;
        case SQLITE_TOOBIG: return EFBIG;
        case SQLITE_PERM:
        case SQLITE_AUTH:
        case SQLITE_CANTOPEN: return EACCES;
        default: return EIO;
    }
}

[[noreturn]] void refuse(sqlite3* database, int result) {
    std::string detail(kPath);
    detail.append(": ").append(database != nullptr ? sqlite().errmsg(database) : sqlite().errstr(result));
    er_SystemEscape(reason_of(result), std::move(detail));
}

}  // namespace

void Statement::Finalize::operator()(sqlite3_stmt* statement) const { sqlite().finalize(statement); }

Statement::Statement(sqlite3* database, const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    const int result = sqlite().prepare_v3(database, sql.c_str(), static_cast<int>(sql.size()) + 1,
                                           SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (result != SQLITE_OK) refuse(database, result);
    statement_.reset(statement);
}

Statement& Statement::bind(int parameter, std::string_view text) {
    // A null pointer would bind NULL.
    const int result = sqlite().bind_text64(statement_.get(), parameter, text.empty() ? "" : text.data(), text.size(),
                                            SQLITE_STATIC, SQLITE_UTF8);
    if (result != SQLITE_OK) refuse(sqlite().db_handle(statement_.get()), result);
    return *this;
}

Statement& Statement::bind(int parameter, std::int64_t number) {
    sqlite().bind_int64(statement_.get(), parameter, number);
    return *this;
}

Statement& Statement::bind_null(int parameter) {
    sqlite().bind_null(statement_.get(), parameter);
    return *this;
}

bool Statement::step() {
    const int result = sqlite().step(statement_.get());
    if (result == SQLITE_ROW) return true;
    if (result == SQLITE_DONE) return false;
    sqlite3* const database = sqlite().db_handle(statement_.get());
    sqlite().reset(statement_.get());
    refuse(database, result);
}

void Statement::reset() { sqlite().reset(statement_.get()); }

std::int64_t Statement::number(int column) const { return sqlite().column_int64(statement_.get(), column); }

std::string_view Statement::text(int column) const {
    const auto* data = reinterpret_cast<const char*>(sqlite().column_text(statement_.get(), column));
    if (data == nullptr) return {};
    return {data, static_cast<std::size_t>(sqlite().column_bytes(statement_.get(), column))};
}

bool Statement::null(int column) const { return sqlite().column_type(statement_.get(), column) == SQLITE_NULL; }

void Database::Close::operator()(sqlite3* database) const { sqlite().close_v2(database); }

std::optional<Database> Database::open(bool create) {
    // SQLite would make the file readable for everybody; its journals take the file's mode over.
    os_Fd file = create ? os_open(kPath, O_RDWR | O_CREAT, 0600) : os_open_if_there(kPath, O_RDONLY);
    if (!file) return std::nullopt;
    // Closing a descriptor of the file drops every lock that this process has on it, so it goes before SQLite locks.
    file.reset();

    sqlite3* handle = nullptr;
    // For writing even when only looked into: the journal of an import that was cut off has to be rolled back.
    const int result =
        sqlite().open_v2(os_HomePath(kPath).c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    Database database;
    database.handle_.reset(handle);
    if (result != SQLITE_OK) refuse(handle, result);
    sqlite().extended_result_codes(handle, 1);
    sqlite().busy_timeout(handle, kPatienceMs);
    return database;
}

void Database::execute(const std::string& sql) {
    const int result = sqlite().exec(handle_.get(), sql.c_str(), nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) refuse(handle_.get(), result);
}

std::optional<std::string> Database::table(std::string_view directory) {
    Statement find = prepare("SELECT name FROM sqlite_master WHERE type = 'table' AND name = ?1 COLLATE NOCASE");
    if (!find.bind(1, directory).step()) return std::nullopt;
    return std::string(find.text(0));
}

Transaction::~Transaction() {
    if (open_) er_TryIgnoring([this] { database_.execute("ROLLBACK"); });
}

void Transaction::commit() {
    database_.execute("COMMIT");
    open_ = false;
}

std::string quoted(std::string_view identifier) {
    std::string out = "\"";
    for (const char c : identifier) {
        if (c == '"') out.push_back('"');
        out.push_back(c);
    }
    return out.append("\"");
}

}  // namespace dr
