// group: groups of devices, changed and commanded.
#include "base/counted.h"
#include "base/json_text.h"
#include "gateway/format.h"
#include "gateway/request.h"
#include "verbs/consent.h"
#include "verbs/data_point_arguments.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

namespace frame_type = lan_client::frame_type;

struct group_arguments {
    std::string group_id;
    std::vector<std::string> devices; // ids or names
    std::vector<std::string> data_points;
    std::string object;
    consent asked;
};

std::string members_sentence(const std::string &group_id, const json &outcome) {
    std::string members;
    std::size_t count = 0;
    if (outcome.is_object() && outcome.contains("cids") && outcome["cids"].is_array()) {
        for (const json &id : outcome["cids"]) {
            members +=
                (count++ == 0 ? ": " : ", ") + (id.is_string() ? id.get<std::string>() : "?");
        }
    }
    return fmt::format("group {} now has {}{}", group_id, counted(count, "device"), members);
}

// What the gateway reports of a change to a group.
json change_group(gateway_session &session, const char *operation, group_arguments &given) {
    given.asked.require(session, fmt::format("Change group {} ({})", given.group_id, operation));
    json payload{{"gid", given.group_id}, {"op", operation}};
    for (const std::string &device : given.devices) {
        payload["cids"].push_back(session.names().device_id(device));
    }
    report_subscription reports(session);
    const auto report = reports.outcome(json_request(frame_type::grp_oper, payload),
                                        [&](const lan_client::report &candidate) {
                                            const json body = parse_json(candidate.payload);
                                            return candidate.type == frame_type::grp_oper &&
                                                   member_text(body, "gid") == given.group_id &&
                                                   member_text(body, "op") == operation;
                                        });
    return payload_json(report.payload);
}

int add_devices(gateway_session &session, group_arguments &given) {
    const json outcome = change_group(session, "add", given);
    return print_result(session, members_sentence(given.group_id, outcome), outcome);
}

int remove_devices(gateway_session &session, group_arguments &given) {
    const json outcome = change_group(session, "remove", given);
    return print_result(session, members_sentence(given.group_id, outcome), outcome);
}

int delete_group(gateway_session &session, group_arguments &given) {
    const json outcome = change_group(session, "delete", given);
    return print_result(session, fmt::format("group {} was deleted", given.group_id), outcome);
}

int set_group(gateway_session &session, group_arguments &given) {
    const json wanted = parse_data_points(given.data_points, given.object);
    for (const auto &[number, value] : wanted.items()) {
        if (const std::string doubt = doubt_about(number, value); !doubt.empty()) {
            session.out().notice(doubt);
        }
    }
    given.asked.require(
        session, fmt::format("Set {} of group {}", data_points_text(wanted), given.group_id));
    ask_one(session,
            json_request(frame_type::grp_exec, {{"gid", given.group_id}, {"dps", wanted}}));
    return print_result(
        session,
        fmt::format("group {} accepted the command {}; engr_app watch shows what its devices do",
                    given.group_id, data_points_text(wanted)),
        {{"gid", given.group_id}, {"dps", wanted}});
}

void declare_group_id(CLI::App &parser, group_arguments &given) {
    given.asked.declare(parser, asked_runs::with_all);
    parser.add_option("GID", given.group_id, "The group")->required();
}

verb_work declare_group_add(CLI::App &parser) {
    const auto given = std::make_shared<group_arguments>();
    declare_group_id(parser, *given);
    parser.add_option("CID", given->devices, "Devices to add, by id or your name")->required();
    return with_arguments(given, add_devices);
}

verb_work declare_group_remove(CLI::App &parser) {
    const auto given = std::make_shared<group_arguments>();
    declare_group_id(parser, *given);
    parser.add_option("CID", given->devices, "Devices to remove, by id or your name")->required();
    return with_arguments(given, remove_devices);
}

verb_work declare_group_delete(CLI::App &parser) {
    const auto given = std::make_shared<group_arguments>();
    declare_group_id(parser, *given);
    return with_arguments(given, delete_group);
}

verb_work declare_group_set(CLI::App &parser) {
    const auto given = std::make_shared<group_arguments>();
    declare_group_id(parser, *given);
    declare_data_points(parser, given->data_points, given->object);
    return with_arguments(given, set_group);
}

} // namespace

verb_work declare_group(CLI::App &parser) {
    parser.footer("Examples:\n"
                  "  engr_app group add kitchen a4c1380001000001 a4c1380001000002\n"
                  "  engr_app group set kitchen 1=true\n"
                  "  engr_app group delete kitchen");
    return add_subverbs(
        parser, {{"add", "add devices to a group, which is made if it is new", declare_group_add},
                 {"remove", "remove devices from a group", declare_group_remove},
                 {"set", "set data points of all devices of a group", declare_group_set},
                 {"delete", "delete a group", declare_group_delete}});
}

} // namespace engr_app
