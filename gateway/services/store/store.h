// The SQLite database: the gateway's fields, its devices and its settings. Each subject reads and
// writes its own tables through prepare.
//
// Every change is one transaction of its own unless one is open, and lasting when its function
// returns. Called with change_mutex held, or before anybody else runs. All functions throw refused
// when the database fails.
#pragma once

#include "gateway_services/site.h"
#include "store/sql.h"

#include <memory>
#include <string>
#include <string_view>

namespace gateway {

/** The database. */
class store {
  public:
    /** Opens a database, creating it when there is none. */
    explicit store(const std::string &path);

    /** Whether the database is empty. */
    [[nodiscard]] bool is_new();
    /** Fills a new database, all or nothing. */
    void begin_life(const site &first);
    /** Migrates a database of an older version, all or nothing. */
    void update_schema();
    /** Reads everything back; throws refused for an invalid value. */
    site load();

    /** Changes a field of the gateway. */
    void set_gateway_field(const field &of, const field_value &value);
    /** Adds a device at the end of the list. */
    void add_device(const site_device &device);
    /** Changes a field of a device. */
    void set_device_field(std::string_view dev_id, const field &of, const field_value &value);
    /** Changes a device's data points. */
    void set_device_dps(std::string_view dev_id, std::string_view dps);

    /** Stores bytes under a name of the gateway's own. */
    void set_setting(std::string_view name, std::string_view value);
    /**
     * Reads them.
     *
     * @return empty when there are none
     */
    std::string setting(std::string_view name);
    /** Removes them, if any. */
    void erase_setting(std::string_view name);

    /** A statement on the tables of schema in store.cpp. */
    statement prepare(const std::string &sql) { return {database_.get(), sql}; }
    [[nodiscard]] sqlite3 *database() const { return database_.get(); }

  private:
    struct closer {
        void operator()(sqlite3 *database) const;
    };

    [[nodiscard]] int64_t version();
    void run_schema_steps();
    void insert_device(const char *table, const site_device &device,
                       const uint32_t *join_after_ms = nullptr);

    std::unique_ptr<sqlite3, closer> database_;
};

/** Opens the store; throws refused. */
void store_init(const std::string &path);
/** Closes it, if it is open. */
void store_shutdown();
/** The open gateway's store; change_mutex is held. */
store &the_store();

} // namespace gateway
