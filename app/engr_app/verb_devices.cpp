// devices: the gateway's devices with their online state.
#include "arguments.h"
#include "device_list.h"
#include "failure.h"
#include "session.h"
#include "verbs.h"

#include <unordered_set>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

// Devices in neither list are the gateway itself and those that are not in normal work.
class state_lookup {
  public:
    explicit state_lookup(const line_state &known)
        : online_(known.online.begin(), known.online.end()),
          offline_(known.offline.begin(), known.offline.end()) {}

    [[nodiscard]] const char *of(const std::string &id) const {
        return online_.contains(id) ? "online" : offline_.contains(id) ? "offline" : "-";
    }

  private:
    std::unordered_set<std::string> online_;
    std::unordered_set<std::string> offline_;
};

int devices(session &present) {
    const auto answers = present.ask({device_list_request(), line_state_request()});
    const std::vector<device> listed = parse_device_list(present.accepted(answers[0]));
    line_state known;
    if (!says_no_devices(answers[1])) {
        known = parse_line_state(present.accepted(answers[1]));
    }
    const state_lookup states(known);
    console &out = present.out();
    if (out.json()) {
        nlohmann::json all = nlohmann::json::array();
        for (const device &one : listed) {
            nlohmann::json entry{{"cid", one.id}, {"pid", one.product_id}};
            const std::string state = states.of(one.id);
            entry["online"] = state == "-" ? nlohmann::json() : nlohmann::json(state == "online");
            all.push_back(std::move(entry));
        }
        out.document(all);
        return exit_success;
    }
    std::vector<console::row> rows;
    for (const device &one : listed) {
        rows.push_back({one.id, one.product_id, states.of(one.id)});
    }
    out.table({"CID", "PID", "STATE"}, rows);
    out.progress(std::to_string(listed.size()) + " devices");
    return exit_success;
}

} // namespace

verb_work declare_devices(arguments &declared) {
    declared.notes("STATE is online, offline, or - for what the gateway keeps in neither list\n"
                   "(null in \"online\" with --json).\n\n"
                   "Examples:\n"
                   "  engr_app devices\n"
                   "  engr_app devices --gateway 127.0.0.1 --json");
    return devices;
}

} // namespace engr_app
