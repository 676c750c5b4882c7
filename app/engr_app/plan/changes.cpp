#include "plan/changes.h"

#include "base/json_text.h"
#include "lan_client/crypto.h"
#include "lan_client/upgrade_status.h"
#include "plan/plan.h"
#include "site/diff.h"
#include "upgrade/version_order.h"

#include <algorithm>
#include <map>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

class plan_comparison {
  public:
    plan_comparison(const gateway_plan &plan, const json &report) : plan_(plan), report_(report) {}

    json compare() {
        compare_channel();
        if (plan_.devices) {
            compare_devices();
        }
        compare_app_config();
        compare_versions();
        return std::move(changes_);
    }

  private:
    void add(const char *item, const std::string &device, const json &before, const json &after,
             const std::string &sentence) {
        changes_.push_back(site_change(plan_.name, item, device, before, after, sentence));
    }

    void compare_channel() {
        const json is = report_.value("channel", json());
        if (plan_.channel && is != *plan_.channel) {
            add("channel", "", is, *plan_.channel,
                fmt::format("channel {}, planned {}", is.is_null() ? "not known" : one_line(is),
                            *plan_.channel));
        }
    }

    void compare_devices() {
        std::map<std::string, const json *> there;
        for (const json &one : report_.at("devices")) {
            there.emplace(member_text(one, "cid"), &one);
        }
        for (const planned_device &one : *plan_.devices) {
            const auto found = there.find(one.id);
            if (found == there.end()) {
                add("device", one.id, json(), {{"cid", one.id}, {"pid", one.product}},
                    fmt::format("device {} ({}) is missing", one.id, one.product));
                continue;
            }
            const std::string product = member_text(*found->second, "pid");
            if (product != one.product) {
                add("pid", one.id, product, one.product,
                    fmt::format("device {} is a {}, planned {}", one.id, product, one.product));
            }
            if (plan_.join_time && found->second->value("online", json()) != true) {
                add("online", one.id, found->second->value("online", json()), true,
                    fmt::format("device {} is not online", one.id));
            }
            there.erase(found);
        }
        for (const auto &[id, device] : there) {
            // A gateway may list itself.
            if (id != member_text(report_.at("gateway"), "id")) {
                add("other_device", id, *device, json(),
                    fmt::format("device {} ({}) is not in the plan", id,
                                member_text(*device, "pid")));
            }
        }
    }

    void compare_app_config() {
        if (!plan_.app_config) {
            return;
        }
        const json is = report_.value("app_config", json());
        const std::string hash = lan_client::sha256_text(*plan_.app_config);
        if (!is.is_object() || member_text(is, "sha256") != hash) {
            add("app_config", "", is, {{"bytes", plan_.app_config->size()}, {"sha256", hash}},
                is.is_object() ? fmt::format("app configuration of {} bytes, planned is another "
                                             "one of {} bytes",
                                             member_text(is, "bytes"), plan_.app_config->size())
                               : fmt::format("no app configuration, planned is one of {} bytes",
                                             plan_.app_config->size()));
        }
    }

    void compare_version(const std::string &device, const json &of, const planned_image &planned) {
        const auto is = of.find("sw_ver");
        if (is == of.end()) {
            return;
        }
        const std::string installed = is->is_string() ? is->get<std::string>() : "";
        if (!lan_client::same_version(installed, planned.version)) {
            add("sw_ver", device, *is, planned.version,
                fmt::format("{}firmware {}, planned {}{}",
                            device.empty() ? "" : fmt::format("device {}: ", device),
                            installed.empty() ? "not known" : installed, planned.version,
                            is_older_version(planned.version, installed) ? " (a downgrade)" : ""));
        }
    }

    void compare_versions() {
        if (plan_.firmware) {
            compare_version("", report_.at("gateway"), *plan_.firmware);
        }
        for (const json &one : report_.at("devices")) {
            const auto planned = plan_.device_firmware.find(member_text(one, "pid"));
            if (planned != plan_.device_firmware.end()) {
                compare_version(member_text(one, "cid"), one, planned->second);
            }
        }
    }

    const gateway_plan &plan_;
    const json &report_;
    json changes_ = json::array();
};

} // namespace

json plan_changes(const gateway_plan &plan, const json &report) {
    return plan_comparison(plan, report).compare();
}

json plan_changes(const site_plan &plan, const json &reports) {
    discovery_result found;
    for (const json &one : reports) {
        const json &about = one.at("gateway");
        found.announcements.push_back({.address = member_text(about, "address"),
                                       .interface_name = {},
                                       .announced_address = {},
                                       .id = member_text(about, "id"),
                                       .product_key = {},
                                       .version = {}});
    }
    const std::vector<gateway_plan> plans = plan.gateways(found);
    json changes = json::array();
    std::vector<bool> planned(reports.size(), false);
    for (const gateway_plan &one : plans) {
        const auto of = std::ranges::find_if(found.announcements, [&one](const auto &announced) {
            return one.id.empty() ? announced.address == one.address : announced.id == one.id;
        });
        const auto index = static_cast<std::size_t>(of - found.announcements.begin());
        if (index == reports.size()) {
            changes.push_back(site_change(one.name, "gateway", "", json(), one.name,
                                          "it is in the plan, but not in the report"));
            continue;
        }
        planned[index] = true;
        for (json &change : plan_changes(one, reports[index])) {
            changes.push_back(std::move(change));
        }
    }
    for (std::size_t index = 0; index < reports.size(); ++index) {
        if (!planned[index]) {
            changes.push_back(site_change(gateway_name(reports[index]), "gateway", "",
                                          reports[index].at("gateway"), json(),
                                          "it is in the report, but not in the plan"));
        }
    }
    return changes;
}

} // namespace engr_app
