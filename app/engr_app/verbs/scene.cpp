// scene: scenes run, stored, assigned to panels, and the set of linkage scenes replaced.
#include "base/json_text.h"
#include "files/json_file.h"
#include "gateway/request.h"
#include "verbs/verb.h"

#include <ctime>
#include <limits>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

namespace frame_type = lan_client::frame_type;

constexpr std::size_t max_name_bytes = 64;
constexpr int64_t greatest_button = 255;
// Gateways keep the modification time in 32 bits; greater ones would all count as the same.
constexpr int64_t greatest_time = std::numeric_limits<int32_t>::max();

struct scene_arguments {
    std::string operation;
    std::string group_id;
    std::string scene_id; // or the panel's device id
    std::string file;
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

int run_linkage_scene(gateway_session &session, const scene_arguments &given) {
    ask_one(session, json_request(frame_type::com_scene_exec, {{"sceneId", given.scene_id}}));
    return print_result(
        session,
        fmt::format("{} was told to run linkage scene {} (it answers the same when it has no such "
                    "scene; engr_app watch shows what changes)",
                    session.chosen().name(), given.scene_id),
        {{"sceneId", given.scene_id}});
}

int run_group_scene(gateway_session &session, const scene_arguments &given) {
    const json payload{{"sid", given.scene_id}, {"gid", given.group_id}};
    ask_one(session, json_request(frame_type::scene_cmd, payload));
    return print_result(session,
                        fmt::format("scene {} of group {} was run", given.scene_id, given.group_id),
                        payload);
}

// The set as it is sent: complete, and consistent in itself.
json checked_set(const std::string &file) {
    const support::json_document document = read_json_file(file, "scenes");
    const support::json_value whole = document.root();
    const std::vector<support::json_value> scenes = whole.required("scenes").elements();
    for (const support::json_value &scene : scenes) {
        if (scene.has("name")) {
            static_cast<void>(scene.required("name").text(max_name_bytes));
        }
        check_actions(scene.required("actions"));
    }
    distinct_ids(scenes, "sceneId");
    json set = whole.json;
    const auto count = static_cast<int64_t>(scenes.size());
    if (whole.has("totalCount")) {
        static_cast<void>(whole.required("totalCount").whole_number(count, count));
    }
    set["totalCount"] = count;
    if (whole.has("gmtModified")) {
        static_cast<void>(whole.required("gmtModified").whole_number(1, greatest_time));
    } else {
        set["gmtModified"] = std::time(nullptr);
    }
    return set;
}

int sync_scenes(gateway_session &session, const scene_arguments &given) {
    const json set = checked_set(given.file);
    ask_one(session, json_request(frame_type::scene_linkage, set));
    const std::string name = session.chosen().name();
    const std::size_t count = set["scenes"].size();
    return print_result(session,
                        count == 0
                            ? fmt::format("{} has no linkage scenes any more", name)
                            : fmt::format("{} has the set of {} linkage scene(s) modified at {} (a "
                                          "set that it had with the same gmtModified it keeps)",
                                          name, count, one_line(set["gmtModified"])),
                        {{"totalCount", set["totalCount"]}, {"gmtModified", set["gmtModified"]}});
}

int operate_scene(gateway_session &session, const scene_arguments &given) {
    json payload{{"sid", given.scene_id}, {"gid", given.group_id}, {"op", given.operation}};
    if (given.operation == "save") {
        if (given.file.empty()) {
            throw wrong_usage("scene oper save: name the FILE with the scene's actions");
        }
        const support::json_document document = read_json_file(given.file, "actions");
        const support::json_value actions = document.root().required("actions");
        check_actions(actions);
        payload["actions"] = actions.json;
    } else if (!given.file.empty()) {
        throw wrong_usage("scene oper delete takes no FILE");
    }
    report_subscription reports(session);
    const auto report =
        reports.outcome(json_request(frame_type::scene_oper, payload),
                        outcome_of(frame_type::scene_oper, payload, {"sid", "gid", "op"}));
    return print_result(session,
                        fmt::format("scene {} of group {} was {}", given.scene_id, given.group_id,
                                    given.operation == "save" ? "saved" : "deleted"),
                        payload_json(report.payload));
}

int assign_panel(gateway_session &session, const scene_arguments &given) {
    const support::json_document document = read_json_file(given.file, "buttons");
    const support::json_value buttons = document.root().required("buttons");
    for (const support::json_value &button : buttons.elements()) {
        static_cast<void>(button.required("button").whole_number(1, greatest_button));
        static_cast<void>(device_id(button, "sid"));
        static_cast<void>(device_id(button, "gid"));
    }
    const json payload{{"cid", given.scene_id}, {"buttons", json(buttons.json)}};
    report_subscription reports(session);
    const auto report = reports.outcome(json_request(frame_type::scene_panel, payload),
                                        outcome_of(frame_type::scene_panel, payload, {"cid"}));
    return print_result(
        session,
        fmt::format("panel {} now has {} assigned button(s)", given.scene_id, buttons.json.size()),
        payload_json(report.payload));
}

verb_work declare_scene_exec(CLI::App &parser) {
    const auto given = std::make_shared<scene_arguments>();
    parser.add_option("SCENEID", given->scene_id, "The linkage scene")->required();
    return with_arguments(given, run_linkage_scene);
}

verb_work declare_scene_run(CLI::App &parser) {
    const auto given = std::make_shared<scene_arguments>();
    parser.add_option("GID", given->group_id, "The group")->required();
    parser.add_option("SID", given->scene_id, "The scene in that group")->required();
    return with_arguments(given, run_group_scene);
}

verb_work declare_scene_sync(CLI::App &parser) {
    const auto given = std::make_shared<scene_arguments>();
    parser
        .add_option("FILE", given->file,
                    "JSON file with all linkage scenes; - reads it from "
                    "standard input")
        ->required();
    return with_arguments(given, sync_scenes);
}

verb_work declare_scene_oper(CLI::App &parser) {
    const auto given = std::make_shared<scene_arguments>();
    parser.add_option("OPERATION", given->operation, "What to do")
        ->required()
        ->check(CLI::IsMember({"save", "delete"}));
    parser.add_option("GID", given->group_id, "The group")->required();
    parser.add_option("SID", given->scene_id, "The scene in that group")->required();
    parser.add_option("FILE", given->file,
                      "JSON file with the actions to save; - reads it from "
                      "standard input");
    return with_arguments(given, operate_scene);
}

verb_work declare_scene_panel(CLI::App &parser) {
    const auto given = std::make_shared<scene_arguments>();
    parser.add_option("CID", given->scene_id, "The panel")->required();
    parser
        .add_option("FILE", given->file,
                    "JSON file with its buttons; - reads it from standard "
                    "input")
        ->required();
    return with_arguments(given, assign_panel);
}

} // namespace

verb_work declare_scene(CLI::App &parser) {
    parser.footer(
        "Files are checked before anything is sent:\n"
        "  sync   {\"gmtModified\": 1700000000, \"scenes\": [{\"sceneId\": \"s1\", \"name\": "
        "\"evening\", \"actions\": ACTIONS}]}\n"
        "         or the array alone; \"totalCount\" is counted, \"gmtModified\" is now unless "
        "given; no scenes clear the set\n"
        "  oper   {\"actions\": ACTIONS} or the array alone\n"
        "  panel  {\"buttons\": [{\"button\": 1, \"sid\": \"s1\", \"gid\": \"kitchen\"}]} or the "
        "array alone; it replaces all\n"
        "ACTIONS is [{\"cid\": \"a4c1380001000001\", \"dps\": {\"1\": true}}].\n\n"
        "Examples:\n"
        "  engr_app scene sync scenes.json\n"
        "  engr_app scene exec s1\n"
        "  engr_app scene oper save kitchen evening actions.json\n"
        "  engr_app scene run kitchen evening\n"
        "  engr_app scene panel a4c1380001000009 buttons.json");
    return add_subverbs(parser,
                        {{"exec", "run a linkage scene", declare_scene_exec},
                         {"run", "run a scene of a group", declare_scene_run},
                         {"sync", "replace the set of linkage scenes", declare_scene_sync},
                         {"oper", "save or delete a scene of a group", declare_scene_oper},
                         {"panel", "assign scenes to a panel's buttons", declare_scene_panel}});
}

} // namespace engr_app
