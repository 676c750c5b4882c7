#include "subjects/scenes.h"

#include "calls/requests.h"
#include "gateway_services/error.h"
#include "store/changes.h"
#include "store/products.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/data_points.h"
#include "support/data_points.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <set>

namespace gateway {
namespace {

using nlohmann::ordered_json;
using support::json_value;

constexpr uint32_t scene_operation_frame = 244;
constexpr uint32_t scene_panel_frame = 248;
constexpr std::size_t actions_max = 1000;

ordered_json last_scene; // guarded by change_mutex

/** Actions of a stored scene, none when there is no such scene; change_mutex is held. */
std::optional<std::string> scene_actions(std::string_view gid, std::string_view sid) {
    statement found = the_store().prepare("SELECT actions FROM scene WHERE gid=? AND sid=?");
    if (!found.bind(1, gid).bind(2, sid).next()) {
        return std::nullopt;
    }
    return found.text(0);
}

[[noreturn]] void refuse_unknown_scene(const std::string &gid, const std::string &sid) {
    throw refused(fmt::format("unknown scene {} of group {}", sid, gid));
}

/** @throws refused  the device's product does not take these values from an app */
void check_commanded_values(const device_record &device, const ordered_json &dps) {
    const std::string fault = product_fault(the_products(), product_of(device), dps, setter::app);
    if (!fault.empty()) {
        throw refused(fault);
    }
}

void save_scene(const std::string &gid, const std::string &sid, const std::string &actions) {
    for (const ordered_json &action : ordered_json::parse(actions)) {
        check_commanded_values(need_device(action["cid"].get_ref<const std::string &>()),
                               action["dps"]);
    }
    the_store()
        .prepare("INSERT OR REPLACE INTO scene(gid, sid, actions) VALUES(?, ?, ?)")
        .bind(1, gid)
        .bind(2, sid)
        .bind(3, actions)
        .run();
    if (the_store().prepare("SELECT count(*) FROM scene").run_for_number() > int64_t{scenes_max}) {
        throw refused(fmt::format("there are {} scenes already", scenes_max));
    }
}

void delete_scene(const std::string &gid, const std::string &sid) {
    statement remove = the_store().prepare("DELETE FROM scene WHERE gid=? AND sid=?");
    if (remove.bind(1, gid).bind(2, sid).run() == 0) {
        refuse_unknown_scene(gid, sid);
    }
}

operation_work read_scene_operation(const json_value &request, ordered_json &outcome) {
    const std::string sid = request.required("sid").plain_text(name_bytes_max);
    const std::string gid = request.required("gid").plain_text(name_bytes_max);
    const json_value op = request.required("op");
    const std::string name = op.text();
    if (name != "save" && name != "delete") {
        op.refuse("is neither save nor delete");
    }
    const std::string actions = name == "save" ? read_actions(request) : "";
    outcome = {{"sid", sid}, {"gid", gid}, {"op", name}};
    return [sid, gid, name, actions](ordered_json &) {
        lasting_change change;
        if (name == "save") {
            save_scene(gid, sid, actions);
        } else {
            delete_scene(gid, sid);
        }
        change.commit();
    };
}

/** Buttons of a panel as they are stored: [{"button": N, "sid": ID, "gid": ID}, ...]. */
ordered_json read_buttons(const json_value &buttons) {
    auto read = ordered_json::array();
    std::set<int64_t> numbers;
    for (const json_value &each : buttons.elements()) {
        const int64_t number = each.required("button").whole_number(1, 255);
        if (!numbers.insert(number).second) {
            each.refuse(fmt::format("button {} is given twice", number));
        }
        read.push_back({{"button", number},
                        {"sid", each.required("sid").plain_text(name_bytes_max)},
                        {"gid", each.required("gid").plain_text(name_bytes_max)}});
    }
    return read;
}

operation_work read_panel_command(const json_value &request, ordered_json &outcome) {
    const std::string cid = request.required("cid").plain_text(name_bytes_max);
    const ordered_json buttons = read_buttons(request.required("buttons"));
    outcome = {{"cid", cid}};
    return [cid, buttons](ordered_json &done) {
        lasting_change change;
        need_listed_device(cid);
        for (const ordered_json &button : buttons) {
            const std::string gid = button["gid"];
            const std::string sid = button["sid"];
            if (!scene_actions(gid, sid)) {
                refuse_unknown_scene(gid, sid);
            }
        }
        remove_panel(cid);
        if (!buttons.empty()) {
            the_store()
                .prepare("INSERT INTO scene_panel(dev_id, buttons) VALUES(?, ?)")
                .bind(1, cid)
                .bind(2, buttons.dump())
                .run();
        }
        change.commit();
        done["buttons"] = buttons.size();
    };
}

} // namespace

void scenes_shutdown() {
    last_scene = nullptr;
}

int32_t operate_scene(const cJSON *request) {
    return carry_out_operation(scene_operation_frame, request, read_scene_operation);
}

int32_t assign_panel(const cJSON *request) {
    return carry_out_operation(scene_panel_frame, request, read_panel_command);
}

void remove_panel(std::string_view dev_id) {
    the_store().prepare("DELETE FROM scene_panel WHERE dev_id=?").bind(1, dev_id).run();
}

void execute_scene(const std::string &gid, const std::string &sid) {
    std::optional<std::string> actions;
    {
        const platform::held_mutex change(change_mutex());
        actions = scene_actions(gid, sid);
    }
    if (!actions) {
        refuse_unknown_scene(gid, sid);
    }
    apply_actions(*actions, {{"gid", gid}, {"sid", sid}});
}

std::string read_actions(const json_value &scene) {
    auto read = ordered_json::array();
    for (const json_value &action : scene.required("actions").elements(0, actions_max)) {
        const json_value dps = action.required("dps");
        support::check_data_points(dps, text_value_bytes_max);
        read.push_back(
            {{"cid", action.required("cid").plain_text(name_bytes_max)}, {"dps", dps.json}});
    }
    return read.dump();
}

void apply_actions(const std::string &actions, const ordered_json &scene) {
    std::vector<data_point_change> changes;
    for (const ordered_json &action : ordered_json::parse(actions)) {
        changes.push_back({action["cid"], action["dps"].dump()});
    }
    change_data_points(changes, change_origin::many_commands);
    const platform::held_mutex change(change_mutex());
    last_scene = scene;
}

void add_scenes_status(ordered_json &status) {
    const auto add_counts = [&](const char *member, const char *sql) {
        ordered_json &counts = status[member] = ordered_json::object();
        statement found = the_store().prepare(sql);
        while (found.next()) {
            counts[found.text(0)] = found.number(1);
        }
    };
    add_counts("scenes", "SELECT gid, count(*) FROM scene GROUP BY gid");
    add_counts("scene_panels", "SELECT dev_id, json_array_length(buttons) FROM scene_panel");
    status["last_scene"] = last_scene;
}

} // namespace gateway
