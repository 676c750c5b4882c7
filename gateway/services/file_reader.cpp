#include "file_reader.h"

#include <nlohmann/json.hpp>

#include <set>
#include <vector>

namespace gateway {

using nlohmann::ordered_json;

void file_value::refuse(const std::string &what) const {
    throw usage_error(file + ": " + (path.empty() ? what : path + ": " + what));
}

file_value file_value::member(const std::string &name, const ordered_json &value) const {
    return {file, path.empty() ? name : path + "." + name, value};
}

file_value file_value::element(std::size_t index) const {
    return {file, path + "[" + std::to_string(index) + "]", json[index]};
}

void file_value::need_object() const {
    if (!json.is_object())
        refuse(std::string("is ") + json.type_name() + ", expected an object");
}

void file_value::need_array() const {
    if (!json.is_array())
        refuse(std::string("is ") + json.type_name() + ", expected an array");
}

int64_t file_value::whole_number(int64_t lowest, int64_t highest) const {
    if (!json.is_number_integer())
        refuse(std::string("is ") + (json.is_number() ? "not whole" : json.type_name()) +
               ", expected a whole number");
    const bool too_large = json.is_number_unsigned() && json.get<uint64_t>() > INT64_MAX;
    if (too_large || json.get<int64_t>() < lowest || json.get<int64_t>() > highest)
        refuse("is " + json.dump() + "; it may be " + std::to_string(lowest) + " to " +
               std::to_string(highest));
    return json.get<int64_t>();
}

void file_value::refuse_unknown(const std::string &known) const {
    refuse("unknown; there are: " + known);
}

ordered_json parse_file(std::string_view text, const std::string &file_name) {
    std::vector<std::set<std::string>> names;
    const auto watch = [&](int, ordered_json::parse_event_t event, ordered_json &value) {
        if (event == ordered_json::parse_event_t::object_start)
            names.emplace_back();
        else if (event == ordered_json::parse_event_t::object_end)
            names.pop_back();
        else if (event == ordered_json::parse_event_t::key &&
                 !names.back().insert(value.get<std::string>()).second)
            throw usage_error(file_name + ": member \"" + value.get<std::string>() +
                              "\" is given twice");
        return true;
    };
    try {
        return ordered_json::parse(text, watch);
    } catch (const ordered_json::exception &error) {
        // What stands before the first "] " is the library's own number of the error.
        const std::string what = error.what();
        throw usage_error(file_name + ": " + what.substr(what.find("] ") + 2));
    }
}

} // namespace gateway
