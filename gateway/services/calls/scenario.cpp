#include "gateway_services/scenario.h"

#include "calls/calls_state.h"
#include "store/json_reader.h"

#include <nlohmann/json.hpp>

#include <limits>

namespace gateway {
namespace {

scenario_entry read_entry(const std::string &name, const json_value &from, bool is_callback) {
    scenario_entry entry{.name = name, .result = std::nullopt};
    const bool is_absent = is_callback && from.json == "absent";
    if (is_callback && !is_absent && from.json.is_string()) {
        from.refuse("is " + from.json.dump() + R"(, expected "absent" or a result)");
    }
    try {
        if (!is_absent) {
            entry.result = static_cast<int32_t>(from.whole_number(
                std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
        }
        check_scenario_entry(entry, is_callback);
    } catch (const usage_error &error) {
        from.refuse(error.what());
    }
    return entry;
}

std::vector<scenario_entry> read_entries(const json_value &from, bool are_callbacks) {
    from.need_object();
    std::vector<scenario_entry> entries;
    for (const auto &[name, value] : from.json.items()) {
        entries.push_back(read_entry(name, from.member(name, value), are_callbacks));
    }
    return entries;
}

uint32_t read_number(const json_value &from) {
    return static_cast<uint32_t>(from.whole_number(0, std::numeric_limits<uint32_t>::max()));
}

bool read_flag(const json_value &from) {
    return from.json.is_boolean() ? from.json.get<bool>() : read_number(from) != 0;
}

upgrade_scenario read_upgrade(const json_value &from) {
    upgrade_scenario read;
    read_members(from,
                 {
                     {"chunk_size", [&](const json_value &v) { read.chunk_size = read_number(v); }},
                     {"rpt_percent", [&](const json_value &v) { read.rpt_percent = read_flag(v); }},
                     {"remain_len", [&](const json_value &v) { read.remain_len = read_number(v); }},
                     {"fail_at", [&](const json_value &v) { read.fail_at = read_number(v); }},
                     {"install_ms", [&](const json_value &v) { read.install_ms = read_number(v); }},
                     {"never_start", [&](const json_value &v) { read.never_start = read_flag(v); }},
                     {"refuse_same_version",
                      [&](const json_value &v) { read.refuse_same_version = read_flag(v); }},
                 });
    return read;
}

} // namespace

scenario parse_scenario(std::string_view text, const std::string &file_name) {
    scenario read;
    read_file_object(
        text, file_name,
        {{"services", [&](const json_value &from) { read.services = read_entries(from, false); }},
         {"callbacks", [&](const json_value &from) { read.callbacks = read_entries(from, true); }},
         {"upgrade", [&](const json_value &from) { read.upgrade = read_upgrade(from); }}});
    return read;
}

} // namespace gateway
