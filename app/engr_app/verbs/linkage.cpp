// linkage: linkage scenes run, and the set of them replaced.
#include "base/counted.h"
#include "base/json_text.h"
#include "files/json_file.h"
#include "gateway/request.h"
#include "verbs/consent.h"
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
// Gateways keep the modification time in 32 bits; greater ones would all count as the same.
constexpr int64_t greatest_time = std::numeric_limits<int32_t>::max();

struct linkage_arguments {
    std::string scene_id;
    std::string file;
    consent asked;
};

int run_linkage_scene(gateway_session &session, linkage_arguments &given) {
    const std::string &scene_id = given.scene_id;
    given.asked.require(session, "Run linkage scene " + scene_id);
    ask_one(session, json_request(frame_type::com_scene_exec, {{"sceneId", scene_id}}));
    return print_result(
        session,
        fmt::format("{} was told to run linkage scene {}; it answers the same when it has no such "
                    "scene (engr_app watch shows what changes)",
                    session.chosen().name(), scene_id),
        {{"sceneId", scene_id}});
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

int sync_scenes(gateway_session &session, linkage_arguments &given) {
    const json set = checked_set(given.file);
    if (set["scenes"].empty()) {
        given.asked.require_always(session, "Delete all linkage scenes");
    } else {
        given.asked.require(session, "Replace all linkage scenes");
    }
    ask_one(session, json_request(frame_type::scene_linkage, set));
    const std::string name = session.chosen().name();
    const std::size_t count = set["scenes"].size();
    return print_result(session,
                        count == 0
                            ? fmt::format("{} no longer has linkage scenes", name)
                            : fmt::format("{} has the set of {} modified at {} (it keeps a set "
                                          "that it had with the same gmtModified)",
                                          name, counted(count, "linkage scene"),
                                          one_line(set["gmtModified"])),
                        {{"totalCount", set["totalCount"]}, {"gmtModified", set["gmtModified"]}});
}

verb_work declare_linkage_run(CLI::App &parser) {
    const auto given = std::make_shared<linkage_arguments>();
    parser.add_option("SCENEID", given->scene_id, "The linkage scene")->required();
    given->asked.declare(parser, asked_runs::with_all);
    return with_arguments(given, run_linkage_scene);
}

verb_work declare_linkage_sync(CLI::App &parser) {
    const auto given = std::make_shared<linkage_arguments>();
    given->asked.declare(parser, asked_runs::with_all);
    parser
        .add_option("FILE", given->file,
                    "JSON file with all linkage scenes; - reads it from standard input")
        ->required();
    return with_arguments(given, sync_scenes);
}

} // namespace

verb_work declare_linkage(CLI::App &parser) {
    parser.footer(
        "FILE is checked before anything is sent. It holds\n"
        "  {\"gmtModified\": 1700000000, \"scenes\": [{\"sceneId\": \"s1\", \"name\": "
        "\"evening\",\n"
        "    \"actions\": [{\"cid\": \"a4c1380001000001\", \"dps\": {\"1\": true}}]}]}\n"
        "or the array alone; \"totalCount\" is counted, \"gmtModified\" is now unless given; no "
        "scenes clear the set,\nwhich is asked for, or needs --yes.\n\n"
        "Examples:\n"
        "  engr_app linkage sync scenes.json\n"
        "  engr_app linkage run s1");
    return add_subverbs(parser,
                        {{"run", "run a linkage scene", declare_linkage_run},
                         {"sync", "replace the set of linkage scenes", declare_linkage_sync}});
}

} // namespace engr_app
