// Reading and comparing of site reports.
#include "site/diff.h"

#include "base/failure.h"
#include "base/json_text.h"
#include "files/input_file.h"
#include "gateway/format.h"
#include "support/json_value.h"

#include <algorithm>
#include <map>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;
using named_values = std::map<std::string, json>;

struct gateway_member {
    const char *name;
    const char *title;
};

constexpr gateway_member compared_members[] = {
    {"id", "id"},
    {"address", "address"},
    {"version", "version"},
    {"sw_ver", "firmware"},
    {"product_key", "product key"},
    {"activated", "activated"},
    {"ability", "ability"},
    {"needs_wifi_setup", "needs Wi-Fi"},
};

bool is_report(const json &value) {
    return value.is_object() && value.value("site_report", json()) == 1 &&
           value.value("gateway", json()).is_object() && value.value("devices", json()).is_array();
}

json part(const json &object, const char *name) {
    return object.is_object() ? object.value(name, json()) : json();
}

std::string value_text(const json &value) {
    return value.is_null()      ? "not known"
           : value.is_boolean() ? yes_or_no(value.get<bool>())
           : value.is_string()  ? value.get<std::string>()
                                : one_line(value);
}

std::string change_text(std::string_view title, const json &before, const json &after) {
    return fmt::format("{}: {} before, {} now", title, value_text(before), value_text(after));
}

// Compares two reports of one gateway.
class comparison {
  public:
    comparison(std::string gateway, const json &before, const json &after, json &changes)
        : gateway_(std::move(gateway)), before_(before), after_(after), changes_(changes) {}

    void compare() {
        const json before = part(before_, "gateway");
        const json after = part(after_, "gateway");
        for (const auto &[name, title] : compared_members) {
            compare_value(name, title, part(before, name), part(after, name));
        }
        compare_value("channel", "channel", part(before_, "channel"), part(after_, "channel"));
        compare_config(part(before_, "app_config"), part(after_, "app_config"));
        compare_devices(devices_of(before_), devices_of(after_));
    }

  private:
    static named_values devices_of(const json &report) {
        named_values devices;
        for (const json &one : part(report, "devices")) {
            devices.insert_or_assign(member_text(one, "cid"), one);
        }
        return devices;
    }

    void add(const std::string &item, const std::string &device, const json &before,
             const json &after, const std::string &sentence) {
        changes_.push_back(site_change(gateway_, item, device, before, after, sentence));
    }

    void compare_value(const char *item, const char *title, const json &before, const json &after) {
        if (before != after) {
            add(item, "", before, after, change_text(title, before, after));
        }
    }

    void compare_config(const json &before, const json &after) {
        if (before == after) {
            return;
        }
        std::string sentence = "there is no app.config any more";
        if (before.is_null()) {
            sentence =
                fmt::format("there is an app.config now, {} bytes", member_text(after, "bytes"));
        } else if (!after.is_null()) {
            sentence = fmt::format("app.config is another one: {} bytes before, {} bytes now",
                                   member_text(before, "bytes"), member_text(after, "bytes"));
        }
        add("app_config", "", before, after, sentence);
    }

    void compare_devices(const named_values &before, const named_values &after) {
        for (const auto &[id, device] : before) {
            if (!after.contains(id)) {
                add("device", id, device, json(), fmt::format("device {} was removed", id));
            }
        }
        for (const auto &[id, device] : after) {
            const auto known = before.find(id);
            if (known == before.end()) {
                add("device", id, json(), device,
                    fmt::format("device {} was added, product {}", id, member_text(device, "pid")));
            } else {
                compare_device(id, known->second, device);
            }
        }
    }

    void compare_device(const std::string &id, const json &before, const json &after) {
        const std::string name = "device " + id;
        if (part(before, "pid") != part(after, "pid")) {
            add("pid", id, part(before, "pid"), part(after, "pid"),
                change_text(name + " is another product", part(before, "pid"), part(after, "pid")));
        }
        if (part(before, "sw_ver") != part(after, "sw_ver")) {
            add("sw_ver", id, part(before, "sw_ver"), part(after, "sw_ver"),
                fmt::format("{} has version {}, before {}", name, value_text(part(after, "sw_ver")),
                            value_text(part(before, "sw_ver"))));
        }
        const json online = part(after, "online");
        if (part(before, "online") != online) {
            add("online", id, part(before, "online"), online,
                name + (online == true    ? " is online now"
                        : online == false ? " is offline now"
                                          : " is neither online nor offline now"));
        }
        compare_data_points(id, part(before, "dps"), part(after, "dps"));
    }

    void compare_data_points(const std::string &id, const json &before, const json &after) {
        if (!before.is_object() || !after.is_object()) {
            return; // one of the reports has no data points
        }
        std::set<std::string> names;
        for (const json *points : {&before, &after}) {
            for (const auto &[name, value] : points->items()) {
                names.insert(name);
            }
        }
        for (const std::string &name : names) {
            const json was = part(before, name.c_str());
            const json is = part(after, name.c_str());
            if (was != is) {
                add("data_point " + name, id, was, is,
                    fmt::format("device {}, data point {}: {} before, {} now", id, name,
                                was.is_null() ? "none" : one_line(was),
                                is.is_null() ? "none" : one_line(is)));
            }
        }
    }

    std::string gateway_;
    const json &before_;
    const json &after_;
    json &changes_;
};

} // namespace

std::string gateway_name(const json &report) {
    const json about = part(report, "gateway");
    const std::string id = part(about, "id").is_string() ? member_text(about, "id") : "";
    return id.empty() ? member_text(about, "address") : id;
}

json site_change(const std::string &gateway, const std::string &item, const std::string &device,
                 const json &before, const json &after, const std::string &sentence) {
    return {{"gateway", gateway}, {"item", item},   {"cid", device.empty() ? json() : json(device)},
            {"before", before},   {"after", after}, {"words", sentence}};
}

json read_site_reports(const std::string &path) {
    const json content = support::json_document(file_text(path), path).root().json;
    json reports = json::array();
    // Of several gateways: one that could not be asked has no report.
    const auto add_those_of = [&reports](const json &gateways, const char *member) {
        for (const json &one : gateways) {
            if (!part(one, member).is_null()) {
                reports.push_back(one[member]);
            }
        }
    };
    if (content.is_array()) {
        add_those_of(content, "result");
    } else if (part(content, "plan_report") == 1) {
        add_those_of(part(content, "gateways"), "site");
    } else {
        reports.push_back(content);
    }
    if (reports.empty() || !std::ranges::all_of(reports, is_report)) {
        throw failure("site_report",
                      path + " is not a site report; engr_app site report --json-file and engr_app "
                             "site apply --report FILE.json write one");
    }
    return reports;
}

json site_changes(const json &before, const json &after) {
    json changes = json::array();
    if (before.size() == 1 && after.size() == 1) {
        // Comparable even if the gateway was replaced by another one.
        comparison(gateway_name(after.front()), before.front(), after.front(), changes).compare();
        return changes;
    }
    named_values known;
    for (const json &one : before) {
        known.insert_or_assign(gateway_name(one), one);
    }
    for (const json &one : after) {
        const std::string name = gateway_name(one);
        const auto found = known.find(name);
        if (found == known.end()) {
            changes.push_back(site_change(name, "gateway", "", json(), part(one, "gateway"),
                                          "it is only in the later report"));
        } else {
            comparison(name, found->second, one, changes).compare();
            known.erase(found);
        }
    }
    for (const auto &[name, one] : known) {
        changes.push_back(site_change(name, "gateway", "", part(one, "gateway"), json(),
                                      "it is only in the earlier report"));
    }
    return changes;
}

} // namespace engr_app
