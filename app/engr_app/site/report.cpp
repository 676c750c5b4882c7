// Gathering and writing of site reports.
#include "site/report.h"

#include "base/escape.h"
#include "base/json_text.h"
#include "gateway/devices.h"
#include "gateway/discovery.h"
#include "gateway/format.h"
#include "gateway/request.h"
#include "gateway/session.h"
#include "lan_client/crypto.h"
#include "lan_client/data_points.h"
#include "lan_client/frame_types.h"

#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;
namespace frame_type = lan_client::frame_type;

constexpr std::size_t max_markdown_columns = 300;

json gateway_json(gateway_session &session, bool listen) {
    const auto &announced = listen ? session.chosen_announcement() : session.chosen().announced;
    json about = announced ? announcement_json(*announced)
                           : json{{"id", nullptr},
                                  {"version", nullptr},
                                  {"product_key", nullptr},
                                  {"activated", nullptr}};
    about["address"] = session.chosen().place();
    return about;
}

json channel_json(gateway_session &session, const lan_client::answer &answered, json &notes) {
    try {
        const json channel = parse_json(expect_success(session, answered));
        return channel.is_object() ? channel.value("channel", json()) : json();
    } catch (const failure &refused) {
        notes.push_back(fmt::format("The channel is not known: {}", refused.what()));
        return {};
    }
}

// A gateway without a configuration refuses to read one.
json config_json(gateway_session &session, const lan_client::answer &answered) {
    if (!answered.failure && answered.ret != 0) {
        return {};
    }
    const std::string content = expect_success(session, answered);
    return {{"bytes", content.size()}, {"sha256", lan_client::sha256_text(content)}};
}

void add_data_points(gateway_session &session, json &devices) {
    ask_of_each(
        session, devices.size(), "data points",
        [&](std::size_t at) {
            return json_request(frame_type::local_dp_query,
                                lan_client::known_points_query(member_text(devices[at], "cid")));
        },
        [&](std::size_t at, const lan_client::answer &answered) {
            // The gateway refuses a device that has not reported any yet.
            const bool answers = answered.failure || answered.ret == 0;
            const json state =
                answers ? lan_client::parse_device_state(expect_success(session, answered))
                        : json::object();
            devices[at]["dps"] = state.is_object() ? state.value("dps", json::object()) : json();
        });
}

// The version of the gateway's firmware, and those of its devices.
void add_all_versions(gateway_session &session, json &report) {
    json &devices = report["devices"];
    std::vector<std::string> ids;
    for (const json &one : devices) {
        ids.push_back(member_text(one, "cid"));
    }
    const firmware_versions versions = ask_versions(session, ids);
    report["gateway"]["sw_ver"] = versions.gateway;
    for (std::size_t at = 0; at < ids.size(); ++at) {
        const std::string &version = versions.devices[at];
        devices[at]["sw_ver"] = version.empty() ? json() : json(version);
    }
}

// A cell of a Markdown table: one line in which nothing is markup.
std::string cell(const std::string &text) {
    std::string escaped;
    for (const char character : escape_for_terminal(text, max_markdown_columns)) {
        if (std::string_view("\\`*_[]<>|#~").find(character) != std::string_view::npos) {
            escaped += '\\';
        }
        escaped += character;
    }
    return escaped;
}

std::string known_text(const json &object, const char *name) {
    const auto found = object.find(name);
    if (found == object.end() || found->is_null()) {
        return "not known";
    }
    if (found->is_boolean()) {
        return yes_or_no(found->get<bool>());
    }
    return member_text(object, name);
}

std::string fact(const std::string &name, const std::string &value) {
    return fmt::format("| {} | {} |\n", name, cell(value));
}

std::string config_text(const json &config) {
    return config.is_object() ? fmt::format("{} bytes, SHA-256 {}", member_text(config, "bytes"),
                                            member_text(config, "sha256"))
                              : "none";
}

std::string count_text(const json &devices) {
    const auto count_of = [&devices](std::string_view state) {
        return std::ranges::count_if(devices,
                                     [state](const json &one) { return state == state_word(one); });
    };
    return fmt::format("{}: {} online, {} offline, {} in neither list", devices.size(),
                       count_of("online"), count_of("offline"), count_of("-"));
}

// The table of devices, with the columns that the report has.
std::string markdown_devices(const json &devices) {
    const bool with_versions = !devices.empty() && devices.front().contains("sw_ver");
    const bool with_data_points = !devices.empty() && devices.front().contains("dps");
    std::string text = std::string("| CID | PID | State |") + (with_versions ? " Version |" : "") +
                       (with_data_points ? " Data points |" : "") + "\n| --- | --- | --- |" +
                       (with_versions ? " --- |" : "") + (with_data_points ? " --- |" : "") + "\n";
    for (const json &one : devices) {
        text += fmt::format("| {} | {} | {} |", cell(member_text(one, "cid")),
                            cell(member_text(one, "pid")), state_word(one));
        if (with_versions) {
            text += fmt::format(" {} |", cell(known_text(one, "sw_ver")));
        }
        if (with_data_points) {
            text += fmt::format(" {} |", cell(data_points_text(one["dps"])));
        }
        text += "\n";
    }
    return text;
}

} // namespace

json ask_site_report(gateway_session &session, const site_report_extent &extent) {
    json report{{"site_report", 1},
                {"notes", json::array()},
                {"gateway", gateway_json(session, extent.announcement)}};
    const auto answers = session.ask({device_list_request(),
                                      line_state_request(),
                                      {.type = frame_type::get_channel},
                                      {.type = frame_type::read_app_cfg}});
    report["time"] = time_text();
    report["devices"] = lan_client::as_json(expect_devices(session, answers[0], answers[1]));
    report["channel"] = channel_json(session, answers[2], report["notes"]);
    report["app_config"] = config_json(session, answers[3]);
    if (report["gateway"]["id"].is_null()) {
        report["notes"].push_back(
            "No announcement of the gateway was received, so its id, version and activation "
            "are not known.");
    }
    if (extent.data_points) {
        add_data_points(session, report["devices"]);
    }
    if (extent.versions) {
        add_all_versions(session, report);
    }
    return report;
}

std::string site_report_markdown(const json &report) {
    const json &about = report.at("gateway");
    const json &devices = report.at("devices");
    std::string text =
        "# Site report\n\n| | |\n| --- | --- |\n" + fact("Time", member_text(report, "time")) +
        fact("Gateway", known_text(about, "id")) + fact("Address", known_text(about, "address")) +
        fact("Protocol", known_text(about, "version")) +
        (about.contains("sw_ver") ? fact("Firmware", known_text(about, "sw_ver")) : "") +
        fact("Product key", known_text(about, "product_key")) +
        fact("Activated", known_text(about, "activated")) +
        fact("Channel", known_text(report, "channel")) +
        fact("app.config", config_text(report.at("app_config"))) +
        fact("Devices", count_text(devices));
    for (const json &note : report.at("notes")) {
        text += "\n" + cell(note.get<std::string>()) + "\n";
    }
    text += "\n## Devices\n\n";
    text += markdown_devices(devices);
    text.pop_back();
    return text;
}

} // namespace engr_app
