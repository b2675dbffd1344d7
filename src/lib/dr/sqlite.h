// SQLite, loaded with the first directory that a process opens: most deliveries have none, and its start-up would be a
// tenth of theirs. Private to the directory service.
#pragma once

#include <sqlite3.h>

namespace dr {

// The functions of SQLite that are used, under their names.
struct Sqlite {
    decltype(&::sqlite3_open_v2) open_v2;
    decltype(&::sqlite3_close_v2) close_v2;
    decltype(&::sqlite3_extended_result_codes) extended_result_codes;
    decltype(&::sqlite3_busy_timeout) busy_timeout;
    decltype(&::sqlite3_errmsg) errmsg;
    decltype(&::sqlite3_errstr) errstr;
    decltype(&::sqlite3_exec) exec;
    decltype(&::sqlite3_prepare_v3) prepare_v3;
    decltype(&::sqlite3_finalize) finalize;
    decltype(&::sqlite3_db_handle) db_handle;
    decltype(&::sqlite3_bind_text64) bind_text64;
    decltype(&::sqlite3_bind_int64) bind_int64;
    decltype(&::sqlite3_bind_null) bind_null;
    decltype(&::sqlite3_step) step;
    decltype(&::sqlite3_reset) reset;
    decltype(&::sqlite3_column_int64) column_int64;
    decltype(&::sqlite3_column_text) column_text;
    decltype(&::sqlite3_column_bytes) column_bytes;
    decltype(&::sqlite3_column_type) column_type;
};

// Raises ELIBACC (system group) when the module cannot be loaded.
const Sqlite& sqlite();

}  // namespace dr
