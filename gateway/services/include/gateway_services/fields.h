// The settable fields of the gateway record and of the device records: one table each, from which
// the site file, the store, the control verbs and the status come.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace gateway {

/** Bytes of the longest id or name that an app gives: of a group, a scene, a setting. */
constexpr std::size_t name_bytes_max = 64;

/** The form of a field in its record, and the values that it takes. */
enum class field_kind : uint8_t {
    text,       /**< NUL-terminated text without control characters */
    plain_text, /**< printable ASCII without quote and backslash: it stands unescaped in JSON texts
                 */
    key,        /**< GW_LOCAL_KEY_SIZE bytes without NUL: that many printable characters, or none */
    unsigned8,
    signed8,
    signed32,
    unsigned32
};

/** One field. */
struct field {
    const char *name;        /**< name in files, verbs and the store */
    field_kind kind;         /**< its form */
    std::size_t offset;      /**< place in its record */
    std::size_t size = 0;    /**< bytes of a text with its NUL */
    int64_t lowest = 0;      /**< smallest number */
    int64_t highest = 0;     /**< largest number */
    bool secret = false;     /**< never shown */
    bool needs_text = false; /**< a text that may not be empty */
    bool is_flag = false;    /**< a number that may also be written as true or false */
};

/** A value of a field: a number or a text, by its kind. */
using field_value = std::variant<int64_t, std::string>;

/** Fields of the gateway record, in record order. */
std::span<const field> gateway_fields();
/** Fields of a device record, in record order; the first is dev_id. */
std::span<const field> device_fields();
/** @return the field of that name, or null */
const field *find_field(std::span<const field> fields, std::string_view name);
/**
 * The same for a name that may be wrong.
 *
 * @throws usage_error  there is no such field
 */
const field &need_field(std::span<const field> fields, std::string_view name);
/** All names, separated by ", ", for messages. */
std::string field_names(std::span<const field> fields);

/** Whether the field holds a number. */
bool is_number(const field &of);
/**
 * Checks a value.
 *
 * @throws usage_error that says what is wrong with it, without the field's name
 */
void check_value(const field &of, const field_value &value);
/**
 * Reads a value as people type it, and checks it.
 *
 * @throws usage_error that begins with the field's name
 */
field_value value_from_text(const field &of, const std::string &text);
/** Stores a checked value in a record. */
void write_field(void *record, const field &of, const field_value &value);
/** Reads a value out of a record. */
field_value read_field(const void *record, const field &of);

} // namespace gateway
