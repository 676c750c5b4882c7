// scene: scenes of a group run, saved and deleted, and assigned to panels.
#include "base/counted.h"
#include "base/json_text.h"
#include "files/json_file.h"
#include "gateway/request.h"
#include "verbs/consent.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

namespace frame_type = lan_client::frame_type;

constexpr int64_t greatest_button = 255;

struct scene_arguments {
    std::string group_id;
    std::string scene_id;
    std::string panel_id;
    std::string file;
    consent asked;
};

report_subscription::rule outcome_of(uint32_t type, const json &asked,
                                     const std::vector<const char *> &same_members) {
    return [=](const lan_client::report &report) {
        const json body = parse_json(report.payload);
        bool same = report.type == type;
        for (const char *name : same_members) {
            same = same && member_text(body, name) == member_text(asked, name);
        }
        return same;
    };
}

int run_group_scene(gateway_session &session, scene_arguments &given) {
    given.asked.require(session,
                        fmt::format("Run scene {} of group {}", given.scene_id, given.group_id));
    const json payload{{"sid", given.scene_id}, {"gid", given.group_id}};
    ask_one(session, json_request(frame_type::scene_cmd, payload));
    return print_result(session,
                        fmt::format("scene {} of group {} was run", given.scene_id, given.group_id),
                        payload);
}

// What the gateway reports of a change to a scene.
json change_scene(gateway_session &session, const json &payload) {
    report_subscription reports(session);
    const auto report =
        reports.outcome(json_request(frame_type::scene_oper, payload),
                        outcome_of(frame_type::scene_oper, payload, {"sid", "gid", "op"}));
    return payload_json(report.payload);
}

int save_scene(gateway_session &session, scene_arguments &given) {
    const support::json_document document = read_json_file(given.file, "actions");
    const support::json_value actions = document.root().required("actions");
    check_actions(actions);
    given.asked.require(session,
                        fmt::format("Save scene {} of group {}", given.scene_id, given.group_id));
    const json outcome = change_scene(session, {{"sid", given.scene_id},
                                                {"gid", given.group_id},
                                                {"op", "save"},
                                                {"actions", json(actions.json)}});
    return print_result(
        session, fmt::format("scene {} of group {} was saved", given.scene_id, given.group_id),
        outcome);
}

int delete_scene(gateway_session &session, scene_arguments &given) {
    given.asked.require(session,
                        fmt::format("Delete scene {} of group {}", given.scene_id, given.group_id));
    const json outcome =
        change_scene(session, {{"sid", given.scene_id}, {"gid", given.group_id}, {"op", "delete"}});
    return print_result(
        session, fmt::format("scene {} of group {} was deleted", given.scene_id, given.group_id),
        outcome);
}

int assign_panel(gateway_session &session, scene_arguments &given) {
    const support::json_document document = read_json_file(given.file, "buttons");
    const support::json_value buttons = document.root().required("buttons");
    for (const support::json_value &button : buttons.elements()) {
        static_cast<void>(button.required("button").whole_number(1, greatest_button));
        static_cast<void>(device_id(button, "sid"));
        static_cast<void>(device_id(button, "gid"));
    }
    given.asked.require(session, "Replace the buttons of panel " + given.panel_id);
    const std::string panel = session.names().device_id(given.panel_id);
    const json payload{{"cid", panel}, {"buttons", json(buttons.json)}};
    report_subscription reports(session);
    const auto report = reports.outcome(json_request(frame_type::scene_panel, payload),
                                        outcome_of(frame_type::scene_panel, payload, {"cid"}));
    return print_result(
        session,
        fmt::format("panel {} now has {}", panel, counted(buttons.json.size(), "assigned button")),
        payload_json(report.payload));
}

void declare_scene_id(CLI::App &parser, scene_arguments &given) {
    given.asked.declare(parser, asked_runs::with_all);
    parser.add_option("GID", given.group_id, "The group")->required();
    parser.add_option("SID", given.scene_id, "The scene in that group")->required();
}

verb_work declare_scene_run(CLI::App &parser) {
    const auto given = std::make_shared<scene_arguments>();
    declare_scene_id(parser, *given);
    return with_arguments(given, run_group_scene);
}

verb_work declare_scene_save(CLI::App &parser) {
    const auto given = std::make_shared<scene_arguments>();
    declare_scene_id(parser, *given);
    parser
        .add_option("FILE", given->file,
                    "JSON file with the scene's actions; - reads it from standard input")
        ->required();
    parser.footer("FILE holds {\"actions\": [{\"cid\": \"a4c1380001000001\", \"dps\": {\"1\": "
                  "true}}]} or the array\nalone. It is checked before anything is sent.\n\n"
                  "Examples:\n"
                  "  engr_app scene save kitchen evening actions.json");
    return with_arguments(given, save_scene);
}

verb_work declare_scene_delete(CLI::App &parser) {
    const auto given = std::make_shared<scene_arguments>();
    declare_scene_id(parser, *given);
    return with_arguments(given, delete_scene);
}

verb_work declare_scene_panel(CLI::App &parser) {
    const auto given = std::make_shared<scene_arguments>();
    given->asked.declare(parser, asked_runs::with_all);
    parser.add_option("CID", given->panel_id, "The panel, by its id or your name")->required();
    parser
        .add_option("FILE", given->file,
                    "JSON file with its buttons; - reads it from standard input")
        ->required();
    parser.footer("FILE holds {\"buttons\": [{\"button\": 1, \"sid\": \"s1\", \"gid\": "
                  "\"kitchen\"}]} or the array alone. It\nreplaces all assignments, and is checked "
                  "before anything is sent.\n\n"
                  "Examples:\n"
                  "  engr_app scene panel a4c1380001000009 buttons.json");
    return with_arguments(given, assign_panel);
}

} // namespace

verb_work declare_scene(CLI::App &parser) {
    parser.footer("Examples:\n"
                  "  engr_app scene save kitchen evening actions.json\n"
                  "  engr_app scene run kitchen evening\n"
                  "  engr_app scene panel a4c1380001000009 buttons.json");
    return add_subverbs(parser,
                        {{"run", "run a scene of a group", declare_scene_run},
                         {"save", "save a scene of a group", declare_scene_save},
                         {"delete", "delete a scene of a group", declare_scene_delete},
                         {"panel", "assign scenes to a panel's buttons", declare_scene_panel}});
}

} // namespace engr_app
