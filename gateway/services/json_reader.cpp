#include "json_reader.h"

#include "data_points.h"
#include "json_text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace gateway {

using nlohmann::ordered_json;

namespace {

/** Parses a whole file; a member given twice is an error as well. */
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

} // namespace

void json_value::refuse(const std::string &what) const {
    throw usage_error(source + ": " + (path.empty() ? what : path + ": " + what));
}

json_value json_value::member(const std::string &name, const ordered_json &value) const {
    return {source, path.empty() ? name : path + "." + name, value};
}

json_value json_value::required(const std::string &name) const {
    need_object();
    const auto found = json.find(name);
    if (found == json.end())
        refuse("has no " + name);
    return member(name, *found);
}

json_value json_value::element(std::size_t index) const {
    return {source, path + "[" + std::to_string(index) + "]", json[index]};
}

void json_value::need_object() const {
    if (!json.is_object())
        refuse(std::string("is ") + json.type_name() + ", expected an object");
}

void json_value::need_array() const {
    if (!json.is_array())
        refuse(std::string("is ") + json.type_name() + ", expected an array");
}

int64_t json_value::whole_number(int64_t lowest, int64_t highest) const {
    if (!json.is_number_integer())
        refuse(std::string("is ") + (json.is_number() ? "not whole" : json.type_name()) +
               ", expected a whole number");
    const bool too_large = json.is_number_unsigned() && json.get<uint64_t>() > INT64_MAX;
    if (too_large || json.get<int64_t>() < lowest || json.get<int64_t>() > highest)
        refuse("is " + json.dump() + "; it may be " + std::to_string(lowest) + " to " +
               std::to_string(highest));
    return json.get<int64_t>();
}

void json_value::refuse_unknown(const std::string &known) const {
    refuse("unknown; there are: " + known);
}

std::string json_value::text() const {
    if (!json.is_string())
        refuse(std::string("is ") + json.type_name() + ", expected a text");
    return json.get<std::string>();
}

std::string json_value::id() const {
    std::string read = text();
    if (read.empty() || read.size() > name_bytes_max)
        refuse("has " + std::to_string(read.size()) + " bytes; it may have 1 to " +
               std::to_string(name_bytes_max));
    if (std::any_of(read.begin(), read.end(), is_control))
        refuse("holds a control character");
    return read;
}

std::string json_value::data_points() const {
    if (const std::string fault = data_points_fault(json); !fault.empty())
        refuse(fault);
    return json.dump();
}

void read_members(const json_value &object, const std::vector<known_member> &members) {
    object.need_object();
    for (const auto &item : object.json.items()) {
        const json_value member = object.member(item.key(), item.value());
        const auto known =
            std::find_if(members.begin(), members.end(),
                         [&](const known_member &of) { return of.name == item.key(); });
        if (known == members.end()) {
            std::string names;
            for (const known_member &of : members)
                names += (names.empty() ? "" : ", ") + std::string(of.name);
            member.refuse_unknown(names);
        }
        known->read(member);
    }
}

void read_file_object(std::string_view text, const std::string &file_name,
                      const std::vector<known_member> &members) {
    const ordered_json json = parse_file(text, file_name);
    read_members({file_name, "", json}, members);
}

} // namespace gateway
