// Loading SQLite: see sqlite.h.
#include "dr/sqlite.h"

#include <cerrno>
#include <string>
#include <type_traits>

#include "er/er.h"
#include "os/module.h"

namespace dr {

namespace {

constexpr std::string_view kModule = "morvane-sqlite";

template <class Pointer>
void find(const os_Module& module, const char* name, Pointer& pointer) {
    pointer = module.function<std::remove_pointer_t<Pointer>>(name);
    if (pointer == nullptr) er_SystemEscape(ELIBACC, std::string(kModule) + ": " + name);
}

Sqlite load() {
    const os_Module module = os_load_module(kModule);
    if (!module) er_SystemEscape(ELIBACC, std::string(kModule));
    Sqlite all{};
    find(module, "sqlite3_open_v2", all.open_v2);
    find(module, "sqlite3_close_v2", all.close_v2);
    find(module, "sqlite3_extended_result_codes", all.extended_result_codes);
    find(module, "sqlite3_busy_timeout", all.busy_timeout);
    find(module, "sqlite3_errmsg", all.errmsg);
    find(module, "sqlite3_errstr", all.errstr);
    find(module, "sqlite3_exec", all.exec);
    find(module, "sqlite3_prepare_v3", all.prepare_v3);
    find(module, "sqlite3_finalize", all.finalize);
    find(module, "sqlite3_db_handle", all.db_handle);
    find(module, "sqlite3_bind_text64", all.bind_text64);
    find(module, "sqlite3_bind_int64", all.bind_int64);
    find(module, "sqlite3_bind_null", all.bind_null);
    find(module, "sqlite3_step", all.step);
    find(module, "sqlite3_reset", all.reset);
    find(module, "sqlite3_column_int64", all.column_int64);
    find(module, "sqlite3_column_text", all.column_text);
    find(module, "sqlite3_column_bytes", all.column_bytes);
    find(module, "sqlite3_column_type", all.column_type);
    return all;
}

}  // namespace

const Sqlite& sqlite() {
    static const Sqlite all = load();  // an escape leaves it to be tried again
    return all;
}

}  // namespace dr
