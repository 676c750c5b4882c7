// The SQLite database: the gateway's fields, its devices and its settings. Each subject reads and
// writes its own tables through prepare and run.
//
// Every change is one transaction of its own unless one is open, and lasting when its function
// returns. Called with change_mutex held, or before anybody else runs. All functions throw refused
// when the database fails.
#pragma once

#include "gateway_services/site.h"

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace gateway {

/** Path of a database that is kept in memory. */
constexpr std::string_view memory_database = ":memory:";

/**
 * One prepared statement. Places and columns count as SQLite counts them, from 1 and from 0. Texts
 * are not copied: they stay where they are until the statement has run or its last row is read.
 */
class statement {
  public:
    statement(sqlite3 *database, const std::string &sql);
    statement(const statement &) = delete;
    statement &operator=(const statement &) = delete;
    ~statement();

    statement &bind(int place, int64_t number);
    statement &bind(int place, std::string_view text);
    statement &bind(int place, const std::string &text) {
        return bind(place, std::string_view(text));
    }
    statement &bind(int place, const field_value &value);
    /** @param value  null: no value */
    statement &bind(int place, const field_value *value);
    /**
     * Fetches the next row.
     *
     * @return false at the end
     */
    bool next();
    /**
     * Runs the statement and makes it ready for the next values.
     *
     * @return number of changed rows
     */
    int run();

    [[nodiscard]] int64_t number(int column) const;
    [[nodiscard]] std::string text(int column) const;
    [[nodiscard]] bool is_null(int column) const;
    [[nodiscard]] field_value value(int column, const field &of) const;

  private:
    statement &check(int result);

    sqlite3 *database_;
    sqlite3_stmt *statement_ = nullptr;
};

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
    /** Reads everything back but the devices; throws refused for an invalid value. */
    site load();
    /** How many devices there are. */
    std::size_t device_count();
    /** Reads the devices back, one after the other, since there may be very many. */
    void load_devices(const std::function<void(const site_device &device)> &take);

    void set_gateway_field(const field &of, const field_value &value);
    /** Adds a device at the end of the list. */
    void add_device(const site_device &device);
    void set_device_field(std::string_view dev_id, const field &of, const field_value &value);
    void set_device_dps(std::string_view dev_id, std::string_view dps);

    /** Stores bytes under a name of the gateway's own. */
    void set_setting(std::string_view name, std::string_view value);
    /** The bytes of that name; empty when there are none. */
    std::string setting(std::string_view name);
    /** Removes them, if any. */
    void erase_setting(std::string_view name);

    /** A statement on the tables of schema in store.cpp. */
    statement prepare(const std::string &sql) { return {database_.get(), sql}; }
    /**
     * Runs a statement once.
     *
     * @param values  for its places, in order
     * @return number of changed rows
     */
    template <typename... Values>
    int run(const std::string &sql, const Values &...values) {
        statement once = prepare(sql);
        [[maybe_unused]] int place = 0;
        (once.bind(++place, values), ...);
        return once.run();
    }
    /** Runs a query that yields one number; 0 without a row. */
    int64_t number(const std::string &query);
    /** Throws refused when a query yields more than a number of things that are named by what. */
    void check_limit(const std::string &query, int64_t most, const char *what);

  private:
    friend class transaction;
    struct closer {
        void operator()(sqlite3 *database) const;
    };

    void run_schema_steps();
    /** @param more  columns behind those of every device */
    statement insertion_into(const char *table, std::initializer_list<const char *> more = {});

    std::unique_ptr<sqlite3, closer> database_;
};

/** Rolls back at the end of its scope unless it was committed. */
class transaction {
  public:
    explicit transaction(store &of);
    transaction(const transaction &) = delete;
    transaction &operator=(const transaction &) = delete;
    ~transaction();
    void commit();

  private:
    sqlite3 *database_;
    bool committed_ = false;
};

/** Opens the store; throws refused. */
void store_init(const std::string &path);
/** Closes it, if it is open. */
void store_shutdown();
/** The open gateway's store; change_mutex is held. */
store &the_store();

} // namespace gateway
