// Site plans. The first byte chooses the form, JSON or YAML.
//
// A plan is refused as wrong usage, or every gateway in it can be worked with: it is
// found by an id or an address, and what is sent to it is JSON. The same plan as JSON means the
// same, and its differences from a report are told in UTF-8.
#include "base/failure.h"
#include "base/json_text.h"
#include "plan/changes.h"
#include "plan/plan.h"
#include "support/input_error.h"
#include "support/require.h"
#include "terminal/console.h"

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using fuzz::require;
using nlohmann::json;

/** A directory of this process, for files that have to have a name. */
struct own_directory {
    own_directory() {
        std::string name = std::filesystem::temp_directory_path() / "engr-fuzz-plans-XXXXXX";
        require(mkdtemp(name.data()) != nullptr, "room for a directory");
        path = name;
    }
    own_directory(const own_directory &) = delete;
    own_directory &operator=(const own_directory &) = delete;
    ~own_directory() { std::filesystem::remove_all(path); }

    std::filesystem::path path;
};

engr_app::console &quiet_console() {
    static engr_app::screen shown_on(true);
    static engr_app::console out(shown_on, false, true);
    return out;
}

std::vector<engr_app::gateway_plan> gateways_of(const engr_app::site_plan &plan) {
    engr_app::discovery_result found;
    found.announcements.push_back({.address = "127.0.0.9",
                                   .interface_name = {},
                                   .announced_address = {},
                                   .id = "gw9",
                                   .product_key = {},
                                   .version = {}});
    return plan.gateways(found);
}

json meaning_of(const engr_app::site_plan &plan) {
    json all = json::array();
    for (const engr_app::gateway_plan &one : gateways_of(plan)) {
        require(!one.name.empty() && (!one.id.empty() || !one.address.empty()),
                "a way to find the gateway");
        json sent = json::array();
        for (const engr_app::planned_request &request : one.requests) {
            require(json::accept(request.payload), "a payload as JSON");
            sent.push_back(request.payload);
        }
        require(json::accept(one.linkage.value_or("[]")), "linkage scenes as JSON");
        all.push_back({one.name, one.id, one.address, sent, one.linkage.value_or(""),
                       one.app_config.value_or(""), one.device_firmware.size()});
    }
    return all;
}

void compare_with_report(const engr_app::site_plan &plan) {
    static const json reports = json::parse(
        R"([{"site_report": 1, "channel": 15, "app_config": null, "notes": [],
             "gateway": {"id": "gw1", "address": "127.0.0.1", "sw_ver": "1"},
             "devices": [{"cid": "a1", "pid": "p", "online": true, "sw_ver": "1"}]}])");
    const json changes = engr_app::plan_changes(plan, reports);
    require(json::accept(engr_app::one_line(changes)), "changes as JSON");
}

void read_plan(const std::filesystem::path &path, std::string_view text) {
    std::ofstream(path, std::ios::binary) << text;
    const engr_app::site_plan plan(path, quiet_console());
    const json meaning = meaning_of(plan);
    compare_with_report(plan);
    const std::filesystem::path as_json = path.parent_path() / "same.json";
    std::ofstream(as_json, std::ios::binary)
        << engr_app::plan_document(path, quiet_console()).root().dump();
    require(meaning_of(engr_app::site_plan(as_json, quiet_console())) == meaning,
            "the same meaning as JSON");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const own_directory directory;
    if (size == 0) {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::filesystem::path path =
        directory.path / (data[0] == 'j' ? "plan.json" : "plan.yaml");
    try {
        read_plan(path, text);
    } catch (const engr_app::failure &failed) {
        require(failed.exit_code() == engr_app::exit_wrong_usage, "wrong usage");
    } catch (const support::input_error &) {
        return 0; // said in words
    }
    return 0;
}
