// dp: data points of one device, shown, changed and queried.
#include "base/json_text.h"
#include "gateway/devices.h"
#include "gateway/format.h"
#include "gateway/request.h"
#include "lan_client/data_points.h"
#include "verbs/consent.h"
#include "verbs/data_point_arguments.h"
#include "verbs/table_arguments.h"
#include "verbs/verb.h"

#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using lan_client::parse_device_state;
using lan_client::says_no_data_points;
using lan_client::says_unknown_device;
using nlohmann::json;
using namespace std::chrono_literals;

namespace frame_type = lan_client::frame_type;

// Most devices report a change at once; for the slow ones there is engr_app watch.
constexpr std::chrono::milliseconds change_time = 1500ms;

struct dp_arguments {
    std::string device; // its id or name
    std::vector<std::string> data_points;
    std::string object;
    bool force = false;
    table_view view;
    consent asked;
};

std::string device_name(gateway_session &session, const std::string &id) {
    return id.empty() ? "the gateway's own device" : device_text(session, id);
}

// The installer's names of the data points of one device.
class point_names {
  public:
    point_names(gateway_session &session, const std::string &device_id) : names_(session.names()) {
        if (names_.names_data_points() && !device_id.empty()) {
            product_ = product_of(session, device_id);
        }
    }

    [[nodiscard]] bool any() const { return !product_.empty(); }

    [[nodiscard]] std::string name_of(const std::string &number) const {
        return names_.data_point_name(product_, number);
    }

    [[nodiscard]] std::string number_of(const std::string &text) const {
        return names_.data_point_number(product_, text);
    }

  private:
    const names_file &names_;
    std::string product_; // empty: its data points have no names
};

std::vector<std::string> numbers_of(const json &data_points) {
    std::vector<std::string> numbers;
    for (const auto &[number, value] : data_points.items()) {
        numbers.push_back(number);
    }
    return numbers;
}

int show_data_points(gateway_session &session, const json &state, const point_names &names,
                     const table_view &view) {
    if (session.out().json()) {
        session.out().document(state);
        return exit_success;
    }
    std::vector<console::row> rows;
    for (const auto &[number, value] : state["dps"].items()) {
        rows.push_back({number, one_line(value)});
        if (names.any()) {
            const std::string name = names.name_of(number);
            rows.back().insert(rows.back().begin() + 1, name == number ? "-" : name);
        }
    }
    std::ranges::sort(rows, {}, [](const console::row &row) {
        return std::pair(row.front().size(), row.front()); // numbers without leading zeros
    });
    session.out().table(names.any() ? console::row{"DP", "NAME", "VALUE"}
                                    : console::row{"DP", "VALUE"},
                        rows, view);
    return exit_success;
}

lan_client::answer ask_state(gateway_session &session, const std::string &device_id) {
    return session
        .ask({json_request(frame_type::local_dp_query, lan_client::known_points_query(device_id))})
        .front();
}

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
    if (says_unknown_device(answered)) {
        throw no_own_device(session);
    }
    std::vector<std::string> ids{""};
    if (!says_no_data_points(answered)) { // without data points there is no id
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
    const std::string id = session.names().device_id(given.device);
    const point_names names(session, id);
    const lan_client::answer answered = ask_state(session, id);
    if (id.empty() && (says_unknown_device(answered) || says_no_data_points(answered))) {
        throw no_own_device(session);
    }
    const std::string payload = expect_success(session, answered);
    const json state = parse_device_state(payload);
    if (state.is_null()) {
        throw malformed_answer("list of data points", payload);
    }
    return show_data_points(session, state, names, given.view);
}

// Refuses what a device would not do, as far as the gateway knows it: a value of another type than
// the data point has now, or anything while the device is offline.
void check_against_device(gateway_session &session, const std::string &id, const json &wanted) {
    const auto answers =
        session.ask({json_request(frame_type::local_dp_query, lan_client::known_points_query(id)),
                     line_state_request()});
    json now = json::object();
    if (!says_no_data_points(answers[0])) {
        const json state = parse_device_state(expect_success(session, answers[0]));
        now = state.is_object() ? state["dps"] : now;
    }
    line_state states;
    if (!says_no_devices(answers[1])) {
        states = parse_line_state(expect_success(session, answers[1]));
    }
    if (std::ranges::find(states.offline, id) != states.offline.end()) {
        throw failure("offline", fmt::format("{} is offline, so nothing was sent; use --force to "
                                             "send the command anyway",
                                             device_name(session, id)));
    }
    for (const auto &[number, value] : wanted.items()) {
        const std::string fault =
            now.contains(number) ? type_fault(number, now[number], value) : "";
        if (!fault.empty()) {
            throw failure("other_type", fault + "; use --force to send it anyway");
        }
        const std::string doubt = now.contains(number) ? "" : doubt_about(number, value);
        if (!doubt.empty()) {
            session.out().notice(doubt);
        }
    }
}

int set_data_points(gateway_session &session, dp_arguments &given) {
    const std::string id = session.names().device_id(given.device);
    const point_names names(session, id);
    const json wanted =
        parse_data_points(given.data_points, given.object,
                          [&names](const std::string &text) { return names.number_of(text); });
    given.asked.require(
        session, fmt::format("Set {} of {}", data_points_text(wanted), device_name(session, id)));
    report_subscription reports(session);
    if (!given.force) {
        check_against_device(session, id, wanted);
    }
    const auto ids = reported_ids(session, id);
    ask_one(session, json_request(frame_type::tp_cmd, lan_client::device_command(id, wanted)));
    // A device may report its points together or one by one; the first report shows that it works.
    const auto report = reports.next(
        [&](const lan_client::report &candidate) {
            return std::ranges::any_of(numbers_of(wanted), [&](const std::string &point) {
                return any_contains(ids, candidate, {point});
            });
        },
        std::min(change_time, session.answer_time()));
    const json reported = report ? parse_device_state(report->payload)["dps"] : json();
    const std::string name = device_name(session, id);
    return print_result(
        session,
        report ? fmt::format("{} accepted the command; it now reports {}", name,
                             data_points_text(reported))
               : fmt::format("the gateway accepted the command for {}; no change was reported yet "
                             "(engr_app watch shows it when it comes)",
                             name),
        {{"cid", id}, {"dps", wanted}, {"reported", reported}});
}

int query_data_points(gateway_session &session, const dp_arguments &given) {
    const std::string id = session.names().device_id(given.device);
    const point_names names(session, id);
    std::vector<int> numbers;
    std::vector<std::string> points;
    for (const std::string &text : given.data_points) {
        points.push_back(names.number_of(text));
        numbers.push_back(parse_data_point(points.back()));
    }
    report_subscription reports(session);
    const auto ids = reported_ids(session, id);
    ask_one(session, json_request(frame_type::dp_query, lan_client::report_query(id, numbers)));
    const auto report = reports.next(
        [&](const lan_client::report &candidate) { return any_contains(ids, candidate, points); },
        session.answer_time());
    if (!report) {
        throw failure("timed_out",
                      fmt::format("{} accepted the query, but {} did not report: it may be "
                                  "offline, see engr_app devices",
                                  session.chosen().name(), device_name(session, id)));
    }
    return show_data_points(session, parse_device_state(report->payload), names, given.view);
}

verb_work declare_dp_get(CLI::App &parser) {
    const auto given = std::make_shared<dp_arguments>();
    parser.add_option("CID", given->device,
                      "The device, by its id or your name; when left out, the gateway's own");
    declare_table(parser, given->view, {"DP", "NAME", "VALUE"});
    return with_arguments(given, get_data_points);
}

verb_work declare_dp_set(CLI::App &parser) {
    const auto given = std::make_shared<dp_arguments>();
    parser.add_option("CID", given->device, "The device, by its id or your name")->required();
    declare_data_points(parser, given->data_points, given->object);
    parser.add_flag("--force", given->force,
                    "Send also what the device would not do: values of another type than it has, "
                    "and commands while it is offline");
    given->asked.declare(parser, asked_runs::with_all);
    return with_arguments(given, set_data_points);
}

verb_work declare_dp_query(CLI::App &parser) {
    const auto given = std::make_shared<dp_arguments>();
    parser.add_option("CID", given->device,
                      "The device, by its id or your name; when left out or '', the gateway's own");
    parser.add_option("DP", given->data_points, "Data points; when left out, all");
    declare_table(parser, given->view, {"DP", "NAME", "VALUE"});
    return with_arguments(given, query_data_points);
}

} // namespace

verb_work declare_dp(CLI::App &parser) {
    parser.footer("get shows what the gateway knows; query makes the device report itself. Data "
                  "points are\nnumbers, or the names that your names file gives them; see engr_app "
                  "devices --help.\n\n"
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
