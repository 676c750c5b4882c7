// unbind: removes devices, and looks whether they are gone.
#include "base/counted.h"
#include "gateway/devices.h"
#include "gateway/request.h"
#include "verbs/consent.h"
#include "verbs/table_arguments.h"
#include "verbs/verb.h"

#include <memory>
#include <unordered_set>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

struct unbind_arguments {
    std::vector<std::string> devices; // ids or names
    table_view view;
    consent asked;
};

std::unordered_set<std::string> bound_ids(const std::string &payload) {
    std::unordered_set<std::string> ids;
    for (const device &one : parse_device_list(payload)) {
        ids.insert(one.id);
    }
    return ids;
}

// A gateway accepts every deletion, so its list of devices before and after shows what happened.
// It handles requests in their order.
int unbind(gateway_session &session, unbind_arguments &given) {
    std::vector<std::string> ids;
    for (const std::string &device : given.devices) {
        ids.push_back(session.names().device_id(device));
    }
    given.asked.require(session, "Remove " + counted(ids.size(), "device"));
    std::vector<lan_client::request> requests{device_list_request()};
    for (const std::string &id : ids) {
        requests.push_back(json_request(lan_client::frame_type::del_sub_dev, {{"cid", id}}));
    }
    requests.push_back(device_list_request());
    const auto answers = session.ask(std::move(requests));
    for (const lan_client::answer &one : answers) {
        expect_success(session, one);
    }
    const auto before = bound_ids(answers.front().payload);
    const auto after = bound_ids(answers.back().payload);
    int code = exit_success;
    nlohmann::json document = nlohmann::json::array();
    std::vector<console::row> rows;
    for (const std::string &id : ids) {
        const bool known = before.contains(id);
        const bool gone = known && !after.contains(id);
        document.push_back({{"gateway", session.chosen().label()},
                            {"cid", id},
                            {"was_bound", known},
                            {"unbound", gone}});
        rows.push_back({id, gone    ? "unbound"
                            : known ? "still bound: the gateway could not remove it, try again"
                                    : "was not bound, see engr_app devices"});
        code = gone ? code : exit_failed;
    }
    if (session.out().json()) {
        session.out().document(document);
    } else {
        session.out().table({"CID", "OUTCOME"}, rows, given.view);
    }
    return code;
}

} // namespace

verb_work declare_unbind(CLI::App &parser) {
    const auto given = std::make_shared<unbind_arguments>();
    parser.add_option("CID", given->devices, "The devices, by id or your name")->required();
    declare_table(parser, given->view, {"CID", "OUTCOME"});
    given->asked.declare(parser, asked_runs::with_all);
    parser.footer("Exit status 1 when one of them was not bound before, or is still bound "
                  "afterwards.\n\n"
                  "Examples:\n"
                  "  engr_app unbind a4c1380001000001 a4c1380001000002");
    return with_arguments(given, unbind);
}

} // namespace engr_app
