#include "store.h"

#include "gateway_services/error.h"

#include <sqlite3.h>

namespace gateway {
namespace {

constexpr int schema_version = 1;

constexpr const char *schema = R"sql(
CREATE TABLE gateway(name TEXT PRIMARY KEY, value) WITHOUT ROWID;
CREATE TABLE device(position INTEGER PRIMARY KEY, dev_id TEXT NOT NULL UNIQUE, sw_ver TEXT,
                    pid TEXT, state INTEGER, online INTEGER, excluded INTEGER, dps TEXT NOT NULL);
CREATE TABLE setting(name TEXT PRIMARY KEY, value BLOB NOT NULL) WITHOUT ROWID;
)sql";

[[noreturn]] void fail(sqlite3 *database) {
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
        throw refused(std::string("the store is damaged: ") + sqlite3_errmsg(database));
    default:
        throw refused(std::string("the store failed: ") + sqlite3_errmsg(database));
    }
}

void run(sqlite3 *database, const char *sql) {
    if (sqlite3_exec(database, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        fail(database);
}

/** One prepared statement. */
class statement {
  public:
    statement(sqlite3 *database, const std::string &sql) : database_(database) {
        if (sqlite3_prepare_v2(database, sql.c_str(), -1, &statement_, nullptr) != SQLITE_OK)
            fail(database);
    }
    statement(const statement &) = delete;
    statement &operator=(const statement &) = delete;
    ~statement() { sqlite3_finalize(statement_); }

    statement &bind(int place, const field_value &value) {
        if (const auto *number = std::get_if<int64_t>(&value))
            return check(sqlite3_bind_int64(statement_, place, *number));
        return bind(place, std::string_view(std::get<std::string>(value)));
    }
    statement &bind(int place, int64_t number) {
        return check(sqlite3_bind_int64(statement_, place, number));
    }
    statement &bind(int place, std::string_view text) {
        return check(sqlite3_bind_text(statement_, place, text.data(),
                                       static_cast<int>(text.size()), SQLITE_TRANSIENT));
    }
    /** Fetches the next row. @return false at the end */
    bool next() {
        const int result = sqlite3_step(statement_);
        if (result != SQLITE_ROW && result != SQLITE_DONE)
            fail(database_);
        return result == SQLITE_ROW;
    }
    /** Runs the statement and makes it ready for the next values. */
    void run() {
        next();
        check(sqlite3_reset(statement_));
    }
    [[nodiscard]] int64_t number(int column) const {
        return sqlite3_column_int64(statement_, column);
    }
    [[nodiscard]] std::string text(int column) const {
        const void *bytes = sqlite3_column_blob(statement_, column);
        const int size = sqlite3_column_bytes(statement_, column);
        return bytes == nullptr
                   ? ""
                   : std::string(static_cast<const char *>(bytes), static_cast<size_t>(size));
    }
    [[nodiscard]] bool is_null(int column) const {
        return sqlite3_column_type(statement_, column) == SQLITE_NULL;
    }
    [[nodiscard]] field_value value(int column, const field &of) const {
        return is_number(of) ? field_value(number(column)) : field_value(text(column));
    }

  private:
    statement &check(int result) {
        if (result != SQLITE_OK)
            fail(database_);
        return *this;
    }

    sqlite3 *database_;
    sqlite3_stmt *statement_ = nullptr;
};

/** Takes back everything since its making unless it was committed. */
class transaction {
  public:
    explicit transaction(sqlite3 *database) : database_(database) {
        run(database_, "BEGIN IMMEDIATE");
    }
    transaction(const transaction &) = delete;
    transaction &operator=(const transaction &) = delete;
    ~transaction() {
        if (!committed_)
            sqlite3_exec(database_, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    void commit() {
        run(database_, "COMMIT");
        committed_ = true;
    }

  private:
    sqlite3 *database_;
    bool committed_ = false;
};

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

std::string device_columns() {
    return field_names(device_fields()) + ", dps";
}

} // namespace

void store::closer::operator()(sqlite3 *database) const {
    sqlite3_close(database);
}

store::store(const std::string &path) {
    sqlite3 *database = nullptr;
    // change_mutex serialises all use, so the library needs no lock of its own.
    const int result = sqlite3_open_v2(
        path.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
        plain_names_layer());
    database_.reset(database);
    if (result != SQLITE_OK)
        fail(database);
    // An exclusive write-ahead log costs one flush a change and leaves no shared-memory file.
    run(database,
        "PRAGMA locking_mode=EXCLUSIVE; PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL");
}

bool store::is_new() {
    statement version(database_.get(), "PRAGMA user_version");
    version.next();
    if (version.number(0) > schema_version)
        throw refused("the store was written by a newer version of this program");
    return version.number(0) == 0;
}

void store::begin_life(const site &first) {
    transaction all(database_.get());
    run(database_.get(), schema);
    for (const field_setting &setting : first.gateway)
        set_gateway_field(*setting.of, setting.value);
    for (const site_device &device : first.devices)
        add_device(device);
    run(database_.get(), ("PRAGMA user_version=" + std::to_string(schema_version)).c_str());
    all.commit();
}

site store::load() {
    site stored;
    statement fields(database_.get(), "SELECT name, value FROM gateway");
    while (fields.next()) {
        if (const field *of = find_field(gateway_fields(), fields.text(0)))
            stored.gateway.push_back({of, fields.value(1, *of)});
    }
    statement devices(database_.get(),
                      "SELECT " + device_columns() + " FROM device ORDER BY position");
    while (devices.next()) {
        site_device &device = stored.devices.emplace_back();
        int column = 0;
        for (const field &of : device_fields()) {
            if (!devices.is_null(column))
                device.fields.push_back({&of, devices.value(column, of)});
            ++column;
        }
        device.dps = devices.text(column);
    }
    try {
        for (const field_setting &setting : stored.gateway)
            check_value(*setting.of, setting.value);
        for (const site_device &device : stored.devices)
            for (const field_setting &setting : device.fields)
                check_value(*setting.of, setting.value);
    } catch (const usage_error &error) {
        throw refused(std::string("the store is damaged: a value in it ") + error.what());
    }
    return stored;
}

void store::set_gateway_field(const field &of, const field_value &value) {
    statement(database_.get(), "INSERT OR REPLACE INTO gateway(name, value) VALUES(?, ?)")
        .bind(1, std::string_view(of.name))
        .bind(2, value)
        .run();
}

void store::add_device(const site_device &device) {
    std::string columns = "dps";
    std::string places = "?";
    for (const field_setting &setting : device.fields) {
        columns += std::string(", ") + setting.of->name;
        places += ", ?";
    }
    statement insert(database_.get(), "INSERT INTO device(" + columns + ") VALUES(" + places + ")");
    int place = 1;
    insert.bind(place, std::string_view(device.dps));
    for (const field_setting &setting : device.fields)
        insert.bind(++place, setting.value);
    insert.run();
}

void store::set_device_field(std::string_view dev_id, const field &of, const field_value &value) {
    statement(database_.get(), "UPDATE device SET " + std::string(of.name) + "=? WHERE dev_id=?")
        .bind(1, value)
        .bind(2, dev_id)
        .run();
}

void store::set_device_dps(std::string_view dev_id, std::string_view dps) {
    statement(database_.get(), "UPDATE device SET dps=? WHERE dev_id=?")
        .bind(1, dps)
        .bind(2, dev_id)
        .run();
}

void store::set_setting(std::string_view name, std::string_view value) {
    statement(database_.get(), "INSERT OR REPLACE INTO setting(name, value) VALUES(?, ?)")
        .bind(1, name)
        .bind(2, value)
        .run();
}

std::string store::setting(std::string_view name) {
    statement found(database_.get(), "SELECT value FROM setting WHERE name=?");
    found.bind(1, name);
    return found.next() ? found.text(0) : "";
}

} // namespace gateway
