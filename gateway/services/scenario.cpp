#include "gateway_services/scenario.h"

#include "calls_state.h"
#include "file_reader.h"

#include <nlohmann/json.hpp>

#include <limits>

namespace gateway {
namespace {

scenario_entry read_entry(const std::string &name, const file_value &from, bool is_callback) {
    scenario_entry entry{.name = name, .result = std::nullopt};
    const bool is_absent = is_callback && from.json == "absent";
    if (is_callback && !is_absent && from.json.is_string())
        from.refuse("is " + from.json.dump() + R"(, expected "absent" or a result)");
    try {
        if (!is_absent)
            entry.result = static_cast<int32_t>(from.whole_number(
                std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
        check_scenario_entry(entry, is_callback);
    } catch (const usage_error &error) {
        from.refuse(error.what());
    }
    return entry;
}

std::vector<scenario_entry> read_entries(const file_value &from, bool are_callbacks) {
    from.need_object();
    std::vector<scenario_entry> entries;
    for (const auto &[name, value] : from.json.items())
        entries.push_back(read_entry(name, from.member(name, value), are_callbacks));
    return entries;
}

} // namespace

scenario parse_scenario(std::string_view text, const std::string &file_name) {
    const auto json = parse_file(text, file_name);
    const file_value whole{file_name, "", json};
    whole.need_object();
    scenario read;
    for (const auto &[name, value] : json.items()) {
        const file_value member = whole.member(name, value);
        if (name == "services")
            read.services = read_entries(member, false);
        else if (name == "callbacks")
            read.callbacks = read_entries(member, true);
        else
            member.refuse_unknown("services, callbacks");
    }
    return read;
}

} // namespace gateway
