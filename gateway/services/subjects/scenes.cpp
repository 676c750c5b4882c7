#include "subjects/scenes.h"

#include "gateway/scene.h"

#include "calls/calls.h"
#include "calls/requests.h"
#include "contracts/callbacks.h"
#include "store/changes.h"
#include "store/products.h"
#include "store/records.h"
#include "store/store.h"

#include <nlohmann/json.hpp>

#include <optional>

namespace gateway {
namespace {

using nlohmann::ordered_json;

constexpr uint32_t scene_operation_frame = 244;
constexpr uint32_t scene_panel_frame = 248;

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
    throw refused("unknown scene " + sid + " of group " + gid);
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
        throw refused("there are " + std::to_string(scenes_max) + " scenes already");
    }
}

void delete_scene(const std::string &gid, const std::string &sid) {
    statement remove = the_store().prepare("DELETE FROM scene WHERE gid=? AND sid=?");
    if (remove.bind(1, gid).bind(2, sid).run() == 0) {
        refuse_unknown_scene(gid, sid);
    }
}

operation_work read_scene_operation(const json_value &request, ordered_json &outcome) {
    const std::string sid = request.required("sid").id();
    const std::string gid = request.required("gid").id();
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
    buttons.need_array();
    auto read = ordered_json::object();
    for (std::size_t i = 0; i < buttons.json.size(); ++i) {
        const json_value each = buttons.element(i);
        const int64_t number = each.required("button").whole_number(1, 255);
        ordered_json &button = read[std::to_string(number)];
        if (!button.is_null()) {
            each.refuse("button " + std::to_string(number) + " is given twice");
        }
        button = {{"button", number},
                  {"sid", each.required("sid").id()},
                  {"gid", each.required("gid").id()}};
    }
    auto list = ordered_json::array();
    for (const auto &[number, button] : read.items()) {
        list.push_back(button);
    }
    return list;
}

operation_work read_panel_command(const json_value &request, ordered_json &outcome) {
    const std::string cid = request.required("cid").id();
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
        forget_panel(cid);
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

void execute_scene(const std::string &gid, const std::string &sid) {
    std::optional<std::string> actions;
    {
        const platform::held_mutex change(change_mutex());
        actions = scene_actions(gid, sid);
    }
    if (!actions) {
        refuse_unknown_scene(gid, sid);
    }
    apply_actions(*actions);
    note_last_scene({{"gid", gid}, {"sid", sid}});
}

} // namespace

void note_last_scene(const ordered_json &scene) {
    const platform::held_mutex change(change_mutex());
    last_scene = scene;
}

void forget_panel(std::string_view dev_id) {
    the_store().prepare("DELETE FROM scene_panel WHERE dev_id=?").bind(1, dev_id).run();
}

void close_scenes() {
    last_scene = nullptr;
}

int32_t call_scene_exec(int32_t mode, const char *dev_id, const char *gid, const char *sid) {
    return service(
        call("scene_exec"),
        [&](call_arguments &list) {
            list.number("mode", mode).text("dev_id", dev_id).text("gid", gid).text("sid", sid);
        },
        [&] { return guarded([&] { execute_scene(gid, sid); }); });
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

using namespace gateway;

int32_t engr_sf_send_scene_oper_cmd(sf_cmd_t *command) {
    return take_operation(call("engr_sf_send_scene_oper_cmd"), scene_operation_frame, command,
                          read_scene_operation);
}

int32_t engr_sf_send_scene_panel_cmd(sf_cmd_t *command) {
    return take_operation(call("engr_sf_send_scene_panel_cmd"), scene_panel_frame, command,
                          read_panel_command);
}
