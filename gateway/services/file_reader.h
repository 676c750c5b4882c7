// Strict reading of JSON files that people write: whatever is wrong is told with its place.
#pragma once

#include "gateway_services/error.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>

namespace gateway {

/** A JSON value of a file, with the path that led to it. */
struct file_value {
    const std::string &file;
    std::string path; /**< like devices[3].dev_id; empty for the whole */
    const nlohmann::ordered_json &json;

    /** Refuses the file. @param what  what is wrong with this value */
    [[noreturn]] void refuse(const std::string &what) const;
    /** The value as an object's member. */
    [[nodiscard]] file_value member(const std::string &name,
                                    const nlohmann::ordered_json &value) const;
    /** The value as an array's element. */
    [[nodiscard]] file_value element(std::size_t index) const;
    /** Refuses anything but an object. */
    void need_object() const;
    /** Refuses anything but an array. */
    void need_array() const;
    /** A whole number within bounds. */
    [[nodiscard]] int64_t whole_number(int64_t lowest, int64_t highest) const;
    /** Refuses a member that is not known. @param known  the names there are */
    [[noreturn]] void refuse_unknown(const std::string &known) const;
};

/** Parses a whole file; a member given twice is an error as well. */
nlohmann::ordered_json parse_file(std::string_view text, const std::string &file_name);

} // namespace gateway
