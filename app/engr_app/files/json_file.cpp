// Reading of JSON files that people give.
#include "files/json_file.h"

#include "base/json_text.h"
#include "files/input_file.h"
#include "lan_client/devices.h"
#include "support/data_points.h"

#include <unordered_set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {

bool is_device_id(std::string_view text) {
    return is_plain_text(text, lan_client::max_device_id_bytes) &&
           text.find(' ') == std::string::npos;
}

support::json_document read_json_file(const std::string &path, const std::string &list_name) {
    support::json_document document(file_text(path), path == "-" ? "standard input" : path);
    document.name_list(list_name);
    return document;
}

std::string device_id(const support::json_value &entry, std::string_view name) {
    const support::json_value member = entry.required(name);
    std::string id = member.text(lan_client::max_device_id_bytes);
    if (!is_device_id(id)) {
        member.refuse("expected printable characters without blank, quote and backslash");
    }
    return id;
}

std::vector<std::string> distinct_ids(const std::vector<support::json_value> &entries,
                                      std::string_view name) {
    std::vector<std::string> ids;
    std::unordered_set<std::string> seen;
    for (const support::json_value &entry : entries) {
        ids.push_back(device_id(entry, name));
        if (!seen.insert(ids.back()).second) {
            entry.required(name).refuse(fmt::format("'{}' is given twice", ids.back()));
        }
    }
    return ids;
}

void check_wanted_data_points(const support::json_value &data_points) {
    support::check_data_points(data_points);
    if (data_points.json.empty()) {
        data_points.refuse("has no data point");
    }
}

void check_actions(const support::json_value &actions) {
    for (const support::json_value &action : actions.elements(1)) {
        static_cast<void>(device_id(action, "cid"));
        check_wanted_data_points(action.required("dps"));
    }
}

} // namespace engr_app
