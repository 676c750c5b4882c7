#include "store/sql.h"

#include "gateway_services/error.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace gateway {
namespace {

/**
 * The system's file layer, but for names, which are taken as they are: the library would make them
 * absolute, and fail where the working directory's own name is long.
 */
const char *plain_names_layer() {
    static sqlite3_vfs layer = [] {
        sqlite3_vfs plain = *sqlite3_vfs_find(nullptr);
        plain.zName = "engr-plain-names";
        plain.xFullPathname = [](sqlite3_vfs *, const char *name, int size, char *out) {
            sqlite3_snprintf(size, out, "%s", name);
            return SQLITE_OK;
        };
        return plain;
    }();
    static const bool is_registered = sqlite3_vfs_register(&layer, 0) == SQLITE_OK;
    return is_registered ? layer.zName : nullptr;
}

/**
 * Makes the file of a new database private, its log and journal get the same permissions.
 *
 * @throws refused  the name belongs to something else; other errors are left to the library
 */
void make_private_file(const std::string &path) {
    const int fd =
        ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    const bool is_link = fd < 0 && errno == ELOOP;
    struct stat status {};
    const bool is_file = fd < 0 || fstat(fd, &status) != 0 || S_ISREG(status.st_mode);
    if (fd >= 0) {
        ::close(fd);
    }
    if (is_link || !is_file) {
        throw refused(fmt::format("the store is not opened: {} is not a regular file", path));
    }
}

} // namespace

sqlite3 *open_database(const std::string &path) {
    if (path != memory_database) {
        make_private_file(path);
    }
    sqlite3 *database = nullptr;
    // change_mutex serialises all use, so the library needs no lock of its own.
    const int result = sqlite3_open_v2(
        path.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
        plain_names_layer());
    try {
        if (result != SQLITE_OK) {
            fail_sql(database);
        }
        // An exclusive write-ahead log costs one flush a change and leaves no shared-memory file.
        // It is kept short, so that it needs little of a disk that is nearly full.
        run_sql(database, "PRAGMA locking_mode=EXCLUSIVE; PRAGMA journal_mode=WAL;"
                          "PRAGMA synchronous=FULL; PRAGMA wal_autocheckpoint=100");
    } catch (...) {
        sqlite3_close(database);
        throw;
    }
    return database;
}

void fail_sql(sqlite3 *database) {
    switch (sqlite3_errcode(database)) {
    case SQLITE_FULL:
        throw refused("the store cannot be written: the disk is full");
    case SQLITE_READONLY:
    case SQLITE_PERM:
        throw refused("the store cannot be written: it or its directory is read-only");
    case SQLITE_CANTOPEN:
        throw refused("the store cannot be opened or created: is its directory writable?");
    case SQLITE_BUSY:
        throw refused("the store is in use by another program");
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
        throw refused(fmt::format("the store is damaged: {}", sqlite3_errmsg(database)));
    default:
        throw refused(fmt::format("the store failed: {}", sqlite3_errmsg(database)));
    }
}

void run_sql(sqlite3 *database, const char *sql) {
    if (sqlite3_exec(database, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail_sql(database);
    }
}

statement::statement(sqlite3 *database, const std::string &sql) : database_(database) {
    if (sqlite3_prepare_v2(database, sql.c_str(), -1, &statement_, nullptr) != SQLITE_OK) {
        fail_sql(database);
    }
}

statement::~statement() {
    sqlite3_finalize(statement_);
}

statement &statement::check(int result) {
    if (result != SQLITE_OK) {
        fail_sql(database_);
    }
    return *this;
}

statement &statement::bind_value(int place, const field_value &value) {
    if (const auto *number = std::get_if<int64_t>(&value)) {
        return bind(place, *number);
    }
    return bind(place, std::string_view(std::get<std::string>(value)));
}

statement &statement::bind(int place, int64_t number) {
    return check(sqlite3_bind_int64(statement_, place, number));
}

statement &statement::bind(int place, std::string_view text) {
    return check(sqlite3_bind_text(statement_, place, text.data(), static_cast<int>(text.size()),
                                   SQLITE_TRANSIENT));
}

bool statement::next() {
    const int result = sqlite3_step(statement_);
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        fail_sql(database_);
    }
    return result == SQLITE_ROW;
}

int statement::run() {
    next();
    check(sqlite3_reset(statement_));
    return sqlite3_changes(database_);
}

int64_t statement::run_for_number() {
    return next() ? number(0) : 0;
}

int64_t statement::number(int column) const {
    return sqlite3_column_int64(statement_, column);
}

std::string statement::text(int column) const {
    const void *bytes = sqlite3_column_blob(statement_, column);
    const int size = sqlite3_column_bytes(statement_, column);
    return bytes == nullptr
               ? ""
               : std::string(static_cast<const char *>(bytes), static_cast<std::size_t>(size));
}

bool statement::is_null(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

field_value statement::value(int column, const field &of) const {
    return is_number(of) ? field_value(number(column)) : field_value(text(column));
}

transaction::transaction(sqlite3 *database) : database_(database) {
    run_sql(database_, "BEGIN IMMEDIATE");
}

transaction::~transaction() {
    if (!committed_) {
        sqlite3_exec(database_, "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void transaction::commit() {
    run_sql(database_, "COMMIT");
    committed_ = true;
}

} // namespace gateway
