// The scenario file.
#include "gateway_services/scenario.h"

#include "calls/calls.h"
#include "gateway_services/error.h"
#include "support/json_value.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <limits>

namespace gateway {
namespace {

using support::json_value;

scenario_entry read_entry(const std::string &name, const json_value &from, bool is_callback) {
    scenario_entry entry{.name = name, .result = std::nullopt};
    const bool is_absent = is_callback && from.json == "absent";
    if (is_callback && !is_absent && from.json.is_string()) {
        from.refuse(fmt::format(R"(is {}, expected "absent" or a result)", from.json.dump()));
    }
    if (!is_absent) {
        entry.result = static_cast<int32_t>(from.whole_number(std::numeric_limits<int32_t>::min(),
                                                              std::numeric_limits<int32_t>::max()));
    }
    try {
        check_scenario_entry(entry, is_callback);
    } catch (const usage_error &error) {
        from.refuse(error.what());
    }
    return entry;
}

std::vector<scenario_entry> read_entries(const json_value &from, bool are_callbacks) {
    std::vector<scenario_entry> entries;
    for (const auto &[name, value] : from.members()) {
        entries.push_back(read_entry(name, value, are_callbacks));
    }
    return entries;
}

uint32_t read_number(const json_value &from) {
    return static_cast<uint32_t>(from.whole_number(0, std::numeric_limits<uint32_t>::max()));
}

bool read_flag(const json_value &from) {
    return from.json.is_boolean() ? from.boolean() : read_number(from) != 0;
}

upgrade_scenario read_upgrade(const json_value &from) {
    upgrade_scenario read;
    const auto number = [](auto &into) {
        return [&into](const json_value &value) { into = read_number(value); };
    };
    const auto flag = [](bool &into) {
        return [&into](const json_value &value) { into = read_flag(value); };
    };
    support::read_members(from, {{"chunk_size", number(read.chunk_size)},
                                 {"rpt_percent", flag(read.rpt_percent)},
                                 {"remain_len", number(read.remain_len)},
                                 {"fail_at", number(read.fail_at)},
                                 {"install_ms", number(read.install_ms)},
                                 {"never_start", flag(read.never_start)},
                                 {"refuse_same_version", flag(read.refuse_same_version)}});
    return read;
}

} // namespace

scenario parse_scenario(std::string_view text, const std::string &file_name) {
    const support::json_document file(text, file_name);
    scenario read;
    support::read_members(
        file.root(),
        {{"services", [&](const json_value &from) { read.services = read_entries(from, false); }},
         {"callbacks", [&](const json_value &from) { read.callbacks = read_entries(from, true); }},
         {"upgrade", [&](const json_value &from) { read.upgrade = read_upgrade(from); }}});
    return read;
}

} // namespace gateway
