// Reading of a plan's gateways. What the schema can't say is checked here: names that have to be
// known, variables, and texts that have to fit a frame.
#include "plan/plan.h"

#include "base/failure.h"
#include "files/input_file.h"
#include "plan/gateway_reader.h"
#include "plan/settings.h"

#include <algorithm>
#include <cstdlib>
#include <set>

#include <fmt/format.h>
#include <fnmatch.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

// Stands for the gateways of a pattern when the plan is checked before any was found.
const lan_client::announcement example_gateway{.address = "192.0.2.1",
                                               .interface_name = {},
                                               .announced_address = {},
                                               .id = "0000000000000000",
                                               .product_key = {},
                                               .version = {}};

std::string entry_place(std::size_t index) {
    return fmt::format("gateways[{}]", index);
}

bool is_named(const std::vector<gateway_plan> &plans, const lan_client::announcement &found) {
    return std::ranges::any_of(plans, [&found](const gateway_plan &one) {
        const auto placed = parse_address(one.address);
        return one.id == found.id || (placed && placed->address == found.address);
    });
}

// Two entries for one gateway would undo each other's work.
void require_distinct(const plan_document &document, const std::vector<gateway_plan> &plans,
                      const std::vector<std::size_t> &entries) {
    std::set<std::string> seen;
    for (std::size_t index = 0; index < plans.size(); ++index) {
        const gateway_plan &one = plans[index];
        std::set<std::string> own{"name " + one.name};
        own.insert(one.id.empty() ? "" : "id " + one.id);
        own.insert(one.address.empty() ? "" : "address " + one.address);
        for (const std::string &mark : own) {
            if (!mark.empty() && !seen.insert(mark).second) {
                document.refuse(entry_place(entries[index]),
                                fmt::format("another gateway of the plan has the {}", mark));
            }
        }
    }
}

} // namespace

std::string secret_source::read(const std::string &what) const {
    std::string secret;
    if (!file.empty()) {
        const std::string text = file_text(file);
        secret = text.substr(0, text.find_first_of("\r\n"));
    } else if (const char *value = std::getenv(variable.c_str())) {
        secret = value;
    }
    if (secret.empty()) {
        throw wrong_usage(fmt::format("the {} is missing: {}", what,
                                      file.empty()
                                          ? fmt::format("set the environment variable {}", variable)
                                          : fmt::format("the first line of {} is empty", file)));
    }
    return secret;
}

site_plan::site_plan(const std::string &path, console &out) : path_(path), document_(path, out) {
    const json &root = document_.root();
    name_ = root.value("name", path);
    static_cast<void>(gateways({})); // checks the gateways that the plan names
    for (std::size_t index = 0; index < root.at("gateways").size(); ++index) {
        if (root["gateways"][index].contains("match")) {
            static_cast<void>(read_gateway(document_, index, &example_gateway));
        }
    }
}

bool site_plan::has_patterns() const {
    return std::ranges::any_of(document_.root().at("gateways"),
                               [](const json &entry) { return entry.contains("match"); });
}

std::vector<gateway_plan> site_plan::gateways(const discovery_result &found) const {
    const json &entries = document_.root().at("gateways");
    std::vector<gateway_plan> plans;
    std::vector<std::size_t> entry_of;
    const auto add = [&](std::size_t index, const lan_client::announcement *announced) {
        plans.push_back(read_gateway(document_, index, announced));
        entry_of.push_back(index);
    };
    for (std::size_t index = 0; index < entries.size(); ++index) {
        if (!entries[index].contains("match")) {
            add(index, nullptr);
        }
    }
    for (std::size_t index = 0; index < entries.size(); ++index) {
        if (!entries[index].contains("match")) {
            continue;
        }
        const std::string pattern = entries[index]["match"];
        for (const lan_client::announcement &one : found.announcements) {
            if (fnmatch(pattern.c_str(), one.id.c_str(), 0) == 0 && !is_named(plans, one)) {
                add(index, &one);
            }
        }
    }
    require_distinct(document_, plans, entry_of);
    return plans;
}

} // namespace engr_app
