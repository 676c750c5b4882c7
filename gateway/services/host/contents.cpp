#include "gateway_services/contents.h"

#include "calls/call_table.h"
#include "store/products.h"
#include "store/records.h"
#include "store/store.h"

#include <nlohmann/json.hpp>

namespace gateway {
namespace {

using nlohmann::ordered_json;

const char *returned_type(call_kind kind) {
    switch (kind) {
    case call_kind::byte:
        return "byte";
    case call_kind::pointer:
        return "pointer";
    case call_kind::nothing:
        return "nothing";
    default:
        return "number";
    }
}

/** Groups with their members; change_mutex is held, here and below. */
ordered_json groups() {
    auto all = ordered_json::object();
    statement found =
        the_store().prepare("SELECT gid, dev_id FROM group_member ORDER BY gid, position");
    while (found.next()) {
        all[found.text(0)].push_back(found.text(1));
    }
    return all;
}

ordered_json scenes() {
    auto all = ordered_json::object();
    statement found = the_store().prepare("SELECT gid, sid, actions FROM scene ORDER BY gid, sid");
    while (found.next()) {
        all[found.text(0)][found.text(1)] = ordered_json::parse(found.text(2));
    }
    return all;
}

ordered_json panels() {
    auto all = ordered_json::object();
    statement found = the_store().prepare("SELECT dev_id, buttons FROM scene_panel");
    while (found.next()) {
        all[found.text(0)] = ordered_json::parse(found.text(1));
    }
    return all;
}

ordered_json linkage_scenes() {
    auto all = ordered_json::object();
    statement found = the_store().prepare("SELECT scene_id, name, actions FROM linkage_scene");
    while (found.next()) {
        all[found.text(0)] = {{"name", found.text(1)},
                              {"actions", ordered_json::parse(found.text(2))}};
    }
    return all;
}

} // namespace

ordered_json contents() {
    const platform::held_mutex change(change_mutex());
    return {{"groups", groups()},
            {"scenes", scenes()},
            {"panels", panels()},
            {"linkage", linkage_scenes()}};
}

ordered_json products() {
    const platform::held_mutex change(change_mutex());
    const std::string stored = the_store().setting(products_setting);
    return stored.empty() ? ordered_json::object() : ordered_json::parse(stored);
}

ordered_json changeable_calls() {
    ordered_json all{{"services", ordered_json::array()}, {"callbacks", ordered_json::array()}};
    for (const call_info &info : call_table) {
        if (info.kind != call_kind::certain) {
            all[info.is_callback ? "callbacks" : "services"].push_back(
                {{"name", info.name}, {"returns", returned_type(info.kind)}});
        }
    }
    return all;
}

} // namespace gateway
