// A thin layer over SQLite: statements, transactions, and errors as exceptions.
#pragma once

#include "gateway_services/fields.h"

#include <cstdint>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace gateway {

/** Path of a database that is kept in memory. */
constexpr std::string_view memory_database = ":memory:";

/**
 * Opens a database as the store needs it.
 *
 * @throws refused
 */
sqlite3 *open_database(const std::string &path);
/** Throws the error of the last call on the database, as refused. */
[[noreturn]] void fail_sql(sqlite3 *database);
/**
 * Runs statements without values.
 *
 * @throws refused
 */
void run_sql(sqlite3 *database, const char *sql);

/** One prepared statement. All of its functions throw refused. */
class statement {
  public:
    statement(sqlite3 *database, const std::string &sql);
    statement(const statement &) = delete;
    statement &operator=(const statement &) = delete;
    ~statement();

    /** By the value's own kind. */
    statement &bind_value(int place, const field_value &value);
    statement &bind(int place, int64_t number);
    statement &bind(int place, std::string_view text);
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
    /** Runs a statement that yields one number. */
    int64_t run_for_number();

    [[nodiscard]] int64_t number(int column) const;
    [[nodiscard]] std::string text(int column) const;
    [[nodiscard]] bool is_null(int column) const;
    [[nodiscard]] field_value value(int column, const field &of) const;

  private:
    statement &check(int result);

    sqlite3 *database_;
    sqlite3_stmt *statement_ = nullptr;
};

/** Rolls back at the end of its scope unless it was committed. */
class transaction {
  public:
    explicit transaction(sqlite3 *database);
    transaction(const transaction &) = delete;
    transaction &operator=(const transaction &) = delete;
    ~transaction();
    void commit();

  private:
    sqlite3 *database_;
    bool committed_ = false;
};

} // namespace gateway
