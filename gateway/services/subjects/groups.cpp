#include "subjects/groups.h"

#include "calls/activity.h"
#include "calls/requests.h"
#include "gateway_services/error.h"
#include "store/arrangement.h"
#include "store/records.h"
#include "store/store.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace gateway {
namespace {

using nlohmann::ordered_json;
using support::json_value;

constexpr uint32_t group_operation_frame = 208;

/** Members of a group, none when there is no such group; change_mutex is held. */
std::vector<std::string> group_members(std::string_view gid) {
    statement found =
        the_store().prepare("SELECT dev_id FROM group_member WHERE gid=? ORDER BY position");
    found.bind(1, gid);
    std::vector<std::string> members;
    while (found.next()) {
        members.push_back(found.text(0));
    }
    return members;
}

void add_members(const std::string &gid, const std::vector<std::string> &dev_ids) {
    for (const std::string &dev_id : dev_ids) {
        need_listed_device(dev_id);
        the_store().run("INSERT OR IGNORE INTO group_member(gid, dev_id) VALUES(?, ?)", gid,
                        dev_id);
    }
    the_store().check_limit("SELECT count(DISTINCT gid) FROM group_member", groups_max, "groups");
}

void remove_members(const std::string &gid, const std::vector<std::string> &dev_ids) {
    for (const std::string &dev_id : dev_ids) {
        if (the_store().run("DELETE FROM group_member WHERE gid=? AND dev_id=?", gid, dev_id) ==
            0) {
            throw refused(fmt::format("device {} is not in group {}", dev_id, gid));
        }
    }
}

void delete_group(const std::string &gid, const std::vector<std::string> &) {
    if (the_store().run("DELETE FROM group_member WHERE gid=?", gid) == 0) {
        throw refused(fmt::format("unknown group {}", gid));
    }
}

/** What an operation did, in words. */
std::string group_deed(std::string_view operation, const std::string &gid,
                       const std::vector<std::string> &dev_ids) {
    return operation == "add"      ? fmt::format("added {} to group {}", listed(dev_ids), gid)
           : operation == "remove" ? fmt::format("removed {} from group {}", listed(dev_ids), gid)
                                   : fmt::format("deleted group {}", gid);
}

/** The operations on a group. */
struct group_operation {
    const char *name;
    void (*change)(const std::string &gid, const std::vector<std::string> &dev_ids);
    bool names_devices;
};
constexpr group_operation group_operations[] = {
    {"add", add_members, true}, {"remove", remove_members, true}, {"delete", delete_group, false}};

const group_operation &read_group_operation_name(const json_value &op) {
    for (const group_operation &known : group_operations) {
        if (op.text() == known.name) {
            return known;
        }
    }
    op.refuse("is none of add, remove and delete");
}

operation_work read_group_operation(const json_value &request, ordered_json &outcome) {
    const std::string gid = request.required("gid").plain_text(name_bytes_max);
    const group_operation &operation = read_group_operation_name(request.required("op"));
    std::vector<std::string> dev_ids;
    if (operation.names_devices) {
        dev_ids = read_device_ids(request.required("cids"));
    }
    outcome = {{"gid", gid}, {"op", operation.name}};
    return [gid, dev_ids, &operation](ordered_json &done) {
        lasting_change all;
        operation.change(gid, dev_ids);
        done["cids"] = group_members(gid);
        all.commit();
        tell_deed(group_deed(operation.name, gid, dev_ids));
    };
}

} // namespace

std::vector<std::string> need_group_members(std::string_view gid) {
    const platform::held_mutex change(change_mutex());
    std::vector<std::string> members = group_members(gid);
    if (members.empty()) {
        throw refused(fmt::format("unknown group {}", gid));
    }
    return members;
}

int32_t operate_group(const cJSON *request) {
    return carry_out_operation(group_operation_frame, request, read_group_operation);
}

void leave_groups(std::string_view dev_id) {
    the_store().run("DELETE FROM group_member WHERE dev_id=?", dev_id);
}

void add_groups_status(ordered_json &status) {
    ordered_json &groups = status["groups"] = ordered_json::object();
    statement found =
        the_store().prepare("SELECT gid, count(*) FROM group_member GROUP BY gid ORDER BY gid");
    while (found.next()) {
        groups[found.text(0)] = found.number(1);
    }
}

} // namespace gateway
