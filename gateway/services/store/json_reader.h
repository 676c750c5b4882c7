// Strict reading of JSON that others write, files and requests: whatever is wrong is told with its
// place.
#pragma once

#include "gateway_services/error.h"

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/** Bytes of the longest id or name in a request: of a group, a scene, a token. */
constexpr std::size_t name_bytes_max = 64;

/** A JSON value, with the path that led to it. All of its functions throw usage_error. */
struct json_value {
    const std::string &source; /**< file name, or what else it came from */
    std::string path;          /**< like devices[3].dev_id; empty for the whole */
    const nlohmann::ordered_json &json;

    /**
     * Refuses the whole.
     *
     * @param what  what is wrong with this value
     */
    [[noreturn]] void refuse(const std::string &what) const;
    /** The value as an object's member. */
    [[nodiscard]] json_value member(const std::string &name,
                                    const nlohmann::ordered_json &value) const;
    /** An object's member, or null. Names are compared as the agent compares them: the letter case
     * of ASCII does not matter. */
    [[nodiscard]] const nlohmann::ordered_json *find(std::string_view name) const;
    /** A member that has to be there. */
    [[nodiscard]] json_value required(const std::string &name) const;
    /** The value as an array's element. */
    [[nodiscard]] json_value element(std::size_t index) const;
    /** Refuses anything but an object. */
    void need_object() const;
    /** Refuses anything but an array. */
    void need_array() const;
    /** A whole number within bounds. */
    [[nodiscard]] int64_t whole_number(int64_t lowest, int64_t highest) const;
    /** A text. */
    [[nodiscard]] std::string text() const;
    /** A text of 1 to name_bytes_max bytes without control character, double quote and backslash,
     * so that it can stand in a JSON text as it is. */
    [[nodiscard]] std::string id() const;
    /** An object of data points, as text. */
    [[nodiscard]] std::string data_points() const;
    /**
     * Refuses a member that is not known.
     *
     * @param known  the names there are
     */
    [[noreturn]] void refuse_unknown(const std::string &known) const;
};

/** A member that an object may have. */
struct known_member {
    const char *name;
    std::function<void(const json_value &value)> read;
};

/**
 * Reads an object of known members only.
 *
 * @throws usage_error
 */
void read_members(const json_value &object, const std::vector<known_member> &members);

/**
 * Reads the text of a request, in which no member is given twice and no object has more than 256 of
 * them.
 *
 * @throws usage_error
 */
void read_request(std::string_view text,
                  const std::function<void(const json_value &request)> &read);

/**
 * Reads a file that holds one object, of known members only.
 *
 * @throws usage_error
 */
void read_file_object(std::string_view text, const std::string &file_name,
                      const std::vector<known_member> &members);

} // namespace gateway
