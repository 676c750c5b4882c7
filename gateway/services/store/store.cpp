#include "store/store.h"

#include "gateway_services/error.h"
#include "store/products.h"

#include <fmt/format.h>
#include <sqlite3.h>

namespace gateway {
namespace {

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
std::unique_ptr<store> open_store;

constexpr int64_t schema_version = std::size(schema_steps);

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

void store::closer::operator()(sqlite3 *database) const {
    sqlite3_close(database);
}

store::store(const std::string &path) : database_(open_database(path)) {}

int64_t store::version() {
    return prepare("PRAGMA user_version").run_for_number();
}

bool store::is_new() {
    if (version() > schema_version) {
        throw refused("the store was written by a newer version of this program");
    }
    return version() == 0;
}

void store::run_schema_steps() {
    for (int64_t step = version(); step < schema_version; ++step) {
        run_sql(database_.get(), schema_steps[step]);
    }
    run_sql(database_.get(), fmt::format("PRAGMA user_version={}", schema_version).c_str());
}

void store::begin_life(const site &first) {
    transaction all(database_.get());
    run_schema_steps();
    for (const field_setting &setting : first.gateway) {
        set_gateway_field(*setting.of, setting.value);
    }
    for (const site_device &device : first.devices) {
        add_device(device);
    }
    for (const joining_device &device : first.joining) {
        insert_device("joining", device, &device.join_after_ms);
    }
    if (!first.products.empty()) {
        set_setting(products_setting, first.products);
    }
    all.commit();
}

void store::update_schema() {
    if (version() == schema_version) {
        return; // a start on a full disk must not need to write
    }
    transaction all(database_.get());
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
    const std::string columns = field_names(device_fields()) + ", dps";
    statement devices = prepare("SELECT " + columns + " FROM device ORDER BY position");
    while (devices.next()) {
        read_device_row(devices, stored.devices.emplace_back());
        check_settings(stored.devices.back().fields);
    }
    statement joining =
        prepare("SELECT " + columns + ", join_after_ms FROM joining ORDER BY position");
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
    prepare("INSERT OR REPLACE INTO gateway(name, value) VALUES(?, ?)")
        .bind(1, std::string_view(of.name))
        .bind_value(2, value)
        .run();
}

void store::add_device(const site_device &device) {
    insert_device("device", device);
}

void store::insert_device(const char *table, const site_device &device,
                          const uint32_t *join_after_ms) {
    std::string columns = "dps";
    std::string places = "?";
    for (const field_setting &setting : device.fields) {
        columns += std::string(", ") + setting.of->name;
        places += ", ?";
    }
    if (join_after_ms != nullptr) {
        columns += ", join_after_ms";
        places += ", ?";
    }
    statement insert =
        prepare("INSERT INTO " + std::string(table) + "(" + columns + ") VALUES(" + places + ")");
    int place = 1;
    insert.bind(place, std::string_view(device.dps));
    for (const field_setting &setting : device.fields) {
        insert.bind_value(++place, setting.value);
    }
    if (join_after_ms != nullptr) {
        insert.bind(++place, int64_t{*join_after_ms});
    }
    insert.run();
}

void store::set_device_field(std::string_view dev_id, const field &of, const field_value &value) {
    prepare("UPDATE device SET " + std::string(of.name) + "=? WHERE dev_id=?")
        .bind_value(1, value)
        .bind(2, dev_id)
        .run();
}

void store::set_device_dps(std::string_view dev_id, std::string_view dps) {
    prepare("UPDATE device SET dps=? WHERE dev_id=?").bind(1, dps).bind(2, dev_id).run();
}

void store::set_setting(std::string_view name, std::string_view value) {
    prepare("INSERT OR REPLACE INTO setting(name, value) VALUES(?, ?)")
        .bind(1, name)
        .bind(2, value)
        .run();
}

std::string store::setting(std::string_view name) {
    statement found = prepare("SELECT value FROM setting WHERE name=?");
    found.bind(1, name);
    return found.next() ? found.text(0) : "";
}

void store::erase_setting(std::string_view name) {
    prepare("DELETE FROM setting WHERE name=?").bind(1, name).run();
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
