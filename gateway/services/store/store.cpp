#include "store/store.h"

#include "gateway_services/error.h"
#include "store/arrangement.h"
#include "store/products.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
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

/** Throws the error of the last call on the database, as refused. */
[[noreturn]] void fail_sql(sqlite3 *database) {
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

/** Runs statements without values. */
void run_sql(sqlite3 *database, const char *sql) {
    if (sqlite3_exec(database, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail_sql(database);
    }
}

/** Opens a database as the store needs it. */
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

/** What each version of the schema adds to the one before it. */
constexpr const char *schema_steps[] = {
    R"sql(
CREATE TABLE gateway(name TEXT PRIMARY KEY, value) WITHOUT ROWID;
CREATE TABLE device(position INTEGER PRIMARY KEY, dev_id TEXT NOT NULL UNIQUE, sw_ver TEXT,
                    pid TEXT, state INTEGER, online INTEGER, excluded INTEGER, dps TEXT NOT NULL);
CREATE TABLE setting(name TEXT PRIMARY KEY, value BLOB NOT NULL) WITHOUT ROWID;
)sql",
    R"sql(
-- Devices that wait to join.
CREATE TABLE joining(position INTEGER PRIMARY KEY, dev_id TEXT NOT NULL UNIQUE, sw_ver TEXT,
                     pid TEXT, state INTEGER, online INTEGER, excluded INTEGER, dps TEXT NOT NULL,
                     join_after_ms INTEGER NOT NULL);
-- A group is its members, in the order in which they were added.
CREATE TABLE group_member(position INTEGER PRIMARY KEY, gid TEXT NOT NULL, dev_id TEXT NOT NULL,
                          UNIQUE(gid, dev_id));
CREATE INDEX group_of_device ON group_member(dev_id);
-- actions: [{"cid": ID, "dps": {...}}, ...]; buttons: [{"button": N, "sid": ID, "gid": ID}, ...]
CREATE TABLE scene(gid TEXT NOT NULL, sid TEXT NOT NULL, actions TEXT NOT NULL,
                   PRIMARY KEY(gid, sid)) WITHOUT ROWID;
CREATE TABLE scene_panel(dev_id TEXT PRIMARY KEY, buttons TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE linkage_scene(scene_id TEXT PRIMARY KEY, name TEXT NOT NULL, actions TEXT NOT NULL)
                           WITHOUT ROWID;
-- What the agent has stored.
CREATE TABLE common(name TEXT PRIMARY KEY, value BLOB NOT NULL) WITHOUT ROWID;
)sql",
};
constexpr int64_t schema_version = std::size(schema_steps);
constexpr const char *schema_version_query = "PRAGMA user_version";

std::unique_ptr<store> open_store;

/** What a device's row begins with. */
std::string device_columns() {
    return field_names(device_fields()) + ", dps";
}

/** Binds what a device's row begins with; the last place that was bound. */
int bind_device(statement &row, const site_device &device) {
    int place = 0;
    for (const field &of : device_fields()) {
        row.bind(++place, device.find(of));
    }
    row.bind(++place, device.dps);
    return place;
}

/** Reads the fields of a device out of a row that begins with them and its data points. */
void read_device_row(const statement &row, site_device &device) {
    int column = 0;
    for (const field &of : device_fields()) {
        if (!row.is_null(column)) {
            device.fields.push_back({&of, row.value(column, of)});
        }
        ++column;
    }
    device.dps = row.text(column);
}

void check_settings(const std::vector<field_setting> &settings) {
    try {
        for (const field_setting &setting : settings) {
            check_value(*setting.of, setting.value);
        }
    } catch (const usage_error &error) {
        throw refused(fmt::format("the store is damaged: a value in it {}", error.what()));
    }
}

} // namespace

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

statement &statement::bind(int place, const field_value &value) {
    if (const auto *number = std::get_if<int64_t>(&value)) {
        return bind(place, *number);
    }
    return bind(place, std::string_view(std::get<std::string>(value)));
}

statement &statement::bind(int place, const field_value *value) {
    return value != nullptr ? bind(place, *value) : check(sqlite3_bind_null(statement_, place));
}

statement &statement::bind(int place, int64_t number) {
    return check(sqlite3_bind_int64(statement_, place, number));
}

statement &statement::bind(int place, std::string_view text) {
    return check(sqlite3_bind_text(statement_, place, text.data(), static_cast<int>(text.size()),
                                   SQLITE_STATIC));
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

transaction::transaction(store &of) : database_(of.database_.get()) {
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

void store::closer::operator()(sqlite3 *database) const {
    sqlite3_close(database);
}

store::store(const std::string &path) : database_(open_database(path)) {}

int64_t store::number(const std::string &query) {
    statement found = prepare(query);
    return found.next() ? found.number(0) : 0;
}

void store::check_limit(const std::string &query, int64_t most, const char *what) {
    if (number(query) > most) {
        throw refused(fmt::format("there are {} {} already", most, what));
    }
}

bool store::is_new() {
    const int64_t version = number(schema_version_query);
    if (version > schema_version) {
        throw refused("the store was written by a newer version of this program");
    }
    return version == 0;
}

void store::run_schema_steps() {
    for (int64_t step = number(schema_version_query); step < schema_version; ++step) {
        run_sql(database_.get(), schema_steps[step]);
    }
    run_sql(database_.get(), fmt::format("PRAGMA user_version={}", schema_version).c_str());
}

void store::begin_life(const site &first) {
    transaction all(*this);
    run_schema_steps();
    for (const field_setting &setting : first.gateway) {
        set_gateway_field(*setting.of, setting.value);
    }
    statement add = insertion_into("device");
    for (const site_device &device : first.devices) {
        bind_device(add, device);
        add.run();
    }
    statement add_joining = insertion_into("joining", {"join_after_ms"});
    for (const joining_device &device : first.joining) {
        add_joining.bind(bind_device(add_joining, device) + 1, int64_t{device.join_after_ms});
        add_joining.run();
    }
    if (!first.products.empty()) {
        set_setting(products_setting, first.products);
    }
    if (!first.arrangement.empty()) {
        store_arrangement(*this, nlohmann::ordered_json::parse(first.arrangement));
    }
    all.commit();
}

void store::update_schema() {
    if (number(schema_version_query) == schema_version) {
        return; // a start on a full disk must not need to write
    }
    transaction all(*this);
    run_schema_steps();
    all.commit();
}

site store::load() {
    site stored;
    statement fields = prepare("SELECT name, value FROM gateway");
    while (fields.next()) {
        if (const field *of = find_field(gateway_fields(), fields.text(0))) {
            stored.gateway.push_back({of, fields.value(1, *of)});
        }
    }
    check_settings(stored.gateway);
    statement joining = prepare(
        fmt::format("SELECT {}, join_after_ms FROM joining ORDER BY position", device_columns()));
    while (joining.next()) {
        joining_device &device = stored.joining.emplace_back();
        read_device_row(joining, device);
        check_settings(device.fields);
        device.join_after_ms =
            static_cast<uint32_t>(joining.number(static_cast<int>(device_fields().size()) + 1));
    }
    stored.products = setting(products_setting);
    return stored;
}

void store::set_gateway_field(const field &of, const field_value &value) {
    run("INSERT OR REPLACE INTO gateway(name, value) VALUES(?, ?)", std::string_view(of.name),
        value);
}

std::size_t store::device_count() {
    return static_cast<std::size_t>(number("SELECT count(*) FROM device"));
}

void store::load_devices(const std::function<void(const site_device &device)> &take) {
    statement rows =
        prepare(fmt::format("SELECT {} FROM device ORDER BY position", device_columns()));
    site_device device;
    while (rows.next()) {
        device.fields.clear();
        read_device_row(rows, device);
        check_settings(device.fields);
        take(device);
    }
}

void store::add_device(const site_device &device) {
    statement add = insertion_into("device");
    bind_device(add, device);
    add.run();
}

statement store::insertion_into(const char *table, std::initializer_list<const char *> more) {
    std::string columns = device_columns();
    std::string places = "?";
    for (std::size_t i = 0; i < device_fields().size() + more.size(); ++i) {
        places += ", ?";
    }
    for (const char *column : more) {
        columns += fmt::format(", {}", column);
    }
    return prepare(fmt::format("INSERT INTO {}({}) VALUES({})", table, columns, places));
}

void store::set_device_field(std::string_view dev_id, const field &of, const field_value &value) {
    run(fmt::format("UPDATE device SET {}=? WHERE dev_id=?", of.name), value, dev_id);
}

void store::set_device_dps(std::string_view dev_id, std::string_view dps) {
    run("UPDATE device SET dps=? WHERE dev_id=?", dps, dev_id);
}

void store::set_setting(std::string_view name, std::string_view value) {
    run("INSERT OR REPLACE INTO setting(name, value) VALUES(?, ?)", name, value);
}

std::string store::setting(std::string_view name) {
    statement found = prepare("SELECT value FROM setting WHERE name=?");
    found.bind(1, name);
    return found.next() ? found.text(0) : "";
}

void store::erase_setting(std::string_view name) {
    run("DELETE FROM setting WHERE name=?", name);
}

void store_init(const std::string &path) {
    open_store = std::make_unique<store>(path);
}

void store_shutdown() {
    open_store.reset();
}

store &the_store() {
    return *open_store;
}

} // namespace gateway
