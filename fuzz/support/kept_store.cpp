// Stands in for the library's functions that open, close and change a database and prepare what is
// asked of it, for the gateway's calls alone: the linker leads them here.
#include "support/kept_store.h"

#include "support/require.h"

#include <sqlite3.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

extern "C" {
int __real_sqlite3_open_v2(const char *name, sqlite3 **database, int flags, const char *layer);
int __wrap_sqlite3_open_v2(const char *name, sqlite3 **database, int flags, const char *layer);
int __real_sqlite3_close(sqlite3 *database);
int __wrap_sqlite3_close(sqlite3 *database);
int __real_sqlite3_exec(sqlite3 *database, const char *sql, sqlite3_callback take_row,
                        void *argument, char **message);
int __wrap_sqlite3_exec(sqlite3 *database, const char *sql, sqlite3_callback take_row,
                        void *argument, char **message);
int __real_sqlite3_prepare_v2(sqlite3 *database, const char *sql, int bytes,
                              sqlite3_stmt **statement, const char **rest);
int __wrap_sqlite3_prepare_v2(sqlite3 *database, const char *sql, int bytes,
                              sqlite3_stmt **statement, const char **rest);
int __real_sqlite3_finalize(sqlite3_stmt *statement);
int __wrap_sqlite3_finalize(sqlite3_stmt *statement);
}

namespace {

sqlite3 *kept_database = nullptr;
bool is_kept = false;   // else the first gateway is still making its tables
bool in_change = false; // between the beginning and the end of a transaction

std::map<std::string, std::vector<sqlite3_stmt *>> idle_statements; // by their text
unsigned statements_in_use = 0;

int run(const char *sql) {
    sqlite3_stmt *statement = nullptr;
    const int result = __wrap_sqlite3_prepare_v2(kept_database, sql, -1, &statement, nullptr);
    if (result != SQLITE_OK) {
        return result;
    }
    sqlite3_step(statement);
    return __wrap_sqlite3_finalize(statement);
}

void begin_life() {
    fuzz::require(run("SAVEPOINT life") == SQLITE_OK, "a store that can be brought back");
}

/** A transaction within the one that is undone at the end. */
int change(std::string_view sql) {
    const bool begins = sql.starts_with("BEGIN");
    fuzz::require(in_change != begins, "one transaction at a time");
    in_change = begins;
    if (begins) {
        return run("SAVEPOINT change");
    }
    const int result = sql == "COMMIT" ? SQLITE_OK : run("ROLLBACK TO change");
    return result == SQLITE_OK ? run("RELEASE change") : result;
}

} // namespace

void fuzz::keep_store() {
    if (!is_kept) {
        is_kept = true;
        begin_life();
    }
}

int __wrap_sqlite3_open_v2(const char *name, sqlite3 **database, int flags, const char *layer) {
    if (!is_kept) {
        const int result = __real_sqlite3_open_v2(name, database, flags, layer);
        kept_database = *database;
        return result;
    }
    begin_life();
    *database = kept_database;
    return SQLITE_OK;
}

int __wrap_sqlite3_close(sqlite3 *database) {
    if (!is_kept) {
        return __real_sqlite3_close(database);
    }
    fuzz::require(!in_change && statements_in_use == 0,
                  "no transaction and no statement to be left open");
    const int result = run("ROLLBACK TO life");
    return result == SQLITE_OK ? run("RELEASE life") : result;
}

int __wrap_sqlite3_prepare_v2(sqlite3 *database, const char *sql, int bytes,
                              sqlite3_stmt **statement, const char **rest) {
    if (!is_kept) {
        return __real_sqlite3_prepare_v2(database, sql, bytes, statement, rest);
    }
    std::vector<sqlite3_stmt *> &idle = idle_statements[sql];
    int result = SQLITE_OK;
    if (idle.empty()) {
        result = __real_sqlite3_prepare_v2(database, sql, bytes, statement, rest);
    } else {
        *statement = idle.back();
        idle.pop_back();
    }
    statements_in_use += *statement != nullptr ? 1 : 0;
    return result;
}

int __wrap_sqlite3_finalize(sqlite3_stmt *statement) {
    if (!is_kept || statement == nullptr) {
        return __real_sqlite3_finalize(statement);
    }
    const int result = sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    idle_statements[sqlite3_sql(statement)].push_back(statement);
    --statements_in_use;
    return result;
}

int __wrap_sqlite3_exec(sqlite3 *database, const char *sql, sqlite3_callback take_row,
                        void *argument, char **message) {
    const std::string_view text = sql;
    if (!is_kept) {
        return __real_sqlite3_exec(database, sql, take_row, argument, message);
    }
    if (text == "BEGIN IMMEDIATE" || text == "COMMIT" || text == "ROLLBACK") {
        return change(text);
    }
    // How a database is kept on a disk is set when it is opened, and once is enough.
    return text.starts_with("PRAGMA locking_mode")
               ? SQLITE_OK
               : __real_sqlite3_exec(database, sql, take_row, argument, message);
}
