// dp: data points of one device, shown, changed and queried.
#include "base/json_text.h"
#include "gateway/format.h"
#include "gateway/request.h"
#include "lan_client/data_points.h"
#include "verbs/data_point_arguments.h"
#include "verbs/verb.h"

#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using lan_client::parse_device_state;
using nlohmann::json;
using namespace std::chrono_literals;

namespace frame_type = lan_client::frame_type;

// Most devices report a change at once; for the slow ones there is engr_app watch.
constexpr std::chrono::milliseconds change_time = 1500ms;

struct dp_arguments {
    std::string device_id;
    std::vector<std::string> data_points;
    std::string object;
};

json request_for(const std::string &device_id) {
    return device_id.empty() ? json::object() : json{{"cid", device_id}};
}

std::string device_name(const std::string &id) {
    return id.empty() ? "the gateway's own device" : "device " + id;
}

std::vector<std::string> names_of(const json &data_points) {
    std::vector<std::string> names;
    for (const auto &[name, value] : data_points.items()) {
        names.push_back(name);
    }
    return names;
}

int show_data_points(gateway_session &session, const json &state) {
    if (session.out().json()) {
        session.out().document(state);
        return exit_success;
    }
    std::vector<console::row> rows;
    for (const auto &[name, value] : state["dps"].items()) {
        rows.push_back({name, one_line(value)});
    }
    std::ranges::sort(rows, {}, [](const console::row &row) {
        return std::pair(row.front().size(), row.front()); // numbers without leading zeros
    });
    session.out().table({"DP", "VALUE"}, rows);
    return exit_success;
}

lan_client::answer ask_state(gateway_session &session, const std::string &device_id) {
    return session.ask({json_request(frame_type::local_dp_query, request_for(device_id))}).front();
}

constexpr std::string_view no_device = "devid not found";
constexpr std::string_view no_data_points = "json obj data unvalid";

failure no_own_device(gateway_session &session) {
    return {"no_own_device",
            fmt::format("{} has no data points of its own: name a device behind the command; "
                        "engr_app devices lists them",
                        session.chosen().name())};
}

// The ids under which the device reports. A gateway's own device may leave its id out.
std::vector<std::string> reported_ids(gateway_session &session, const std::string &device_id) {
    if (!device_id.empty()) {
        return {device_id};
    }
    const lan_client::answer answered = ask_state(session, "");
    if (is_refused_with(answered, no_device)) {
        throw no_own_device(session);
    }
    std::vector<std::string> ids{""};
    if (!is_refused_with(answered, no_data_points)) { // without data points there is no id
        const json state = parse_device_state(expect_success(session, answered));
        ids.push_back(state.is_object() ? member_text(state, "cid") : "");
    }
    if (const auto &announced = session.chosen().announced) {
        ids.push_back(announced->id);
    }
    return ids;
}

bool any_contains(const std::vector<std::string> &ids, const lan_client::report &report,
                  const std::vector<std::string> &data_points) {
    return std::ranges::any_of(
        ids, [&](const std::string &id) { return lan_client::contains(report, id, data_points); });
}

int get_data_points(gateway_session &session, const dp_arguments &given) {
    const lan_client::answer answered = ask_state(session, given.device_id);
    if (given.device_id.empty() &&
        (is_refused_with(answered, no_device) || is_refused_with(answered, no_data_points))) {
        throw no_own_device(session);
    }
    const std::string payload = expect_success(session, answered);
    const json state = parse_device_state(payload);
    if (state.is_null()) {
        throw malformed_answer("list of data points", payload);
    }
    return show_data_points(session, state);
}

int set_data_points(gateway_session &session, const dp_arguments &given) {
    const json wanted = parse_data_points(given.data_points, given.object);
    json payload = request_for(given.device_id);
    payload["dps"] = wanted;
    report_subscription reports(session);
    const auto ids = reported_ids(session, given.device_id);
    ask_one(session, json_request(frame_type::tp_cmd, payload));
    // A device may report its points together or one by one; the first report shows that it works.
    const auto report = reports.next(
        [&](const lan_client::report &candidate) {
            return std::ranges::any_of(names_of(wanted), [&](const std::string &point) {
                return any_contains(ids, candidate, {point});
            });
        },
        std::min(change_time, session.answer_time()));
    const json reported = report ? parse_device_state(report->payload)["dps"] : json();
    const std::string name = device_name(given.device_id);
    return print_result(
        session,
        report ? fmt::format("{} took the command and reports {}", name, data_points_text(reported))
               : fmt::format("the gateway took the command for {}; no change was reported yet "
                             "(engr_app watch shows it when it comes)",
                             name),
        {{"cid", given.device_id}, {"dps", wanted}, {"reported", reported}});
}

int query_data_points(gateway_session &session, const dp_arguments &given) {
    json payload = request_for(given.device_id);
    json numbers = json::array();
    for (const std::string &text : given.data_points) {
        numbers.push_back(parse_data_point(text));
    }
    if (!numbers.empty()) {
        payload["dpId"] = numbers.size() == 1 ? numbers.front() : numbers;
    }
    report_subscription reports(session);
    const auto ids = reported_ids(session, given.device_id);
    ask_one(session, json_request(frame_type::dp_query, payload));
    const auto report = reports.next(
        [&](const lan_client::report &candidate) {
            return any_contains(ids, candidate, given.data_points);
        },
        session.answer_time());
    if (!report) {
        throw failure("timed_out",
                      fmt::format("{} took the query, but {} did not report: it may be offline, "
                                  "see engr_app online",
                                  session.chosen().name(), device_name(given.device_id)));
    }
    return show_data_points(session, parse_device_state(report->payload));
}

verb_work declare_dp_get(CLI::App &parser) {
    const auto given = std::make_shared<dp_arguments>();
    parser.add_option("CID", given->device_id, "The device; when left out, the gateway's own");
    return with_arguments(given, get_data_points);
}

verb_work declare_dp_set(CLI::App &parser) {
    const auto given = std::make_shared<dp_arguments>();
    parser.add_option("CID", given->device_id, "The device")->required();
    declare_data_points(parser, given->data_points, given->object);
    return with_arguments(given, set_data_points);
}

verb_work declare_dp_query(CLI::App &parser) {
    const auto given = std::make_shared<dp_arguments>();
    parser.add_option("CID", given->device_id,
                      "The device; when left out or '', the gateway's own");
    parser.add_option("DP", given->data_points, "Data points; when left out, all");
    return with_arguments(given, query_data_points);
}

} // namespace

verb_work declare_dp(CLI::App &parser) {
    parser.footer("get shows what the gateway knows; query makes the device report itself.\n\n"
                  "Examples:\n"
                  "  engr_app dp get a4c1380001000001\n"
                  "  engr_app dp set a4c1380001000001 1=true 2=50 3=auto\n"
                  "  engr_app dp set a4c1380001000001 --json-dps '{\"3\": \"50\"}'\n"
                  "  engr_app dp query a4c1380001000001 1 2");
    return add_subverbs(parser, {{"get", "show the data points of a device", declare_dp_get},
                                 {"set", "command a device to change data points", declare_dp_set},
                                 {"query", "make a device report data points", declare_dp_query}});
}

} // namespace engr_app
