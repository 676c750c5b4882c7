// group: groups of devices, changed and commanded.
#include "base/json_text.h"
#include "gateway/format.h"
#include "gateway/request.h"
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
    std::string operation;
    std::string group_id;
    std::vector<std::string> device_ids;
    std::vector<std::string> data_points;
    std::string object;
};

std::string sentence_of(const group_arguments &given, const json &outcome) {
    if (given.operation == "delete") {
        return fmt::format("group {} was deleted", given.group_id);
    }
    std::string members;
    std::size_t count = 0;
    if (outcome.is_object() && outcome.contains("cids") && outcome["cids"].is_array()) {
        for (const json &id : outcome["cids"]) {
            members +=
                (count++ == 0 ? ": " : ", ") + (id.is_string() ? id.get<std::string>() : "?");
        }
    }
    return fmt::format("group {} now has {} device(s){}", given.group_id, count, members);
}

int operate_group(gateway_session &session, const group_arguments &given) {
    json payload{{"gid", given.group_id}, {"op", given.operation}};
    if (given.operation != "delete") {
        if (given.device_ids.empty()) {
            throw wrong_usage(
                fmt::format("group oper {}: name at least one device", given.operation));
        }
        payload["cids"] = given.device_ids;
    } else if (!given.device_ids.empty()) {
        throw wrong_usage("group oper delete takes no devices: the whole group goes; use remove");
    }
    report_subscription reports(session);
    const auto report = reports.outcome(json_request(frame_type::grp_oper, payload),
                                        [&given](const lan_client::report &candidate) {
                                            const json body = parse_json(candidate.payload);
                                            return candidate.type == frame_type::grp_oper &&
                                                   member_text(body, "gid") == given.group_id &&
                                                   member_text(body, "op") == given.operation;
                                        });
    const json outcome = payload_json(report.payload);
    return print_result(session, sentence_of(given, outcome), outcome);
}

int command_group(gateway_session &session, const group_arguments &given) {
    const json wanted = parse_data_points(given.data_points, given.object);
    ask_one(session,
            json_request(frame_type::grp_exec, {{"gid", given.group_id}, {"dps", wanted}}));
    return print_result(
        session,
        fmt::format("group {} took the command {}; engr_app watch shows the changes of its devices",
                    given.group_id, data_points_text(wanted)),
        {{"gid", given.group_id}, {"dps", wanted}});
}

verb_work declare_group_oper(CLI::App &parser) {
    const auto given = std::make_shared<group_arguments>();
    parser
        .add_option("OPERATION", given->operation, "What to do; add makes the group when it is new")
        ->required()
        ->check(CLI::IsMember({"add", "remove", "delete"}));
    parser.add_option("GID", given->group_id, "The group")->required();
    parser.add_option("CIDS", given->device_ids, "Devices to add or to remove");
    return with_arguments(given, operate_group);
}

verb_work declare_group_exec(CLI::App &parser) {
    const auto given = std::make_shared<group_arguments>();
    parser.add_option("GID", given->group_id, "The group")->required();
    declare_data_points(parser, given->data_points, given->object);
    return with_arguments(given, command_group);
}

} // namespace

verb_work declare_group(CLI::App &parser) {
    parser.footer("Examples:\n"
                  "  engr_app group oper add kitchen a4c1380001000001 a4c1380001000002\n"
                  "  engr_app group exec kitchen 1=true\n"
                  "  engr_app group oper delete kitchen");
    return add_subverbs(parser,
                        {{"oper", "add or remove devices, delete a group", declare_group_oper},
                         {"exec", "command all devices of a group", declare_group_exec}});
}

} // namespace engr_app
