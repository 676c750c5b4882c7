#include "operations.h"

#include "agent_calls.h"
#include "agent_run.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"
#include "gateway_services/host.h"
#include "numbers.h"
#include "server_watch.h"
#include "upgrade_verb.h"
#include "verbs.h"

#include <nlohmann/json.hpp>

#include <exception>

namespace gatewayd {
namespace {

using nlohmann::ordered_json;
using texts = std::vector<std::string>;

/** The answer of a verb that has nothing to tell but its success. */
ordered_json done() {
    return {{"ok", true}};
}
/** The answer of a verb that called the agent. */
ordered_json with_result(ordered_json result) {
    return {{"result", std::move(result)}};
}

/** Chooses between two words. */
bool is_first(const std::string &text, const std::string &first, const std::string &second) {
    if (text != first && text != second) {
        throw gateway::usage_error("'" + text + "' is neither " + first + " nor " + second);
    }
    return text == first;
}

ordered_json set_fault(const texts &arguments) {
    if (arguments[1] == "off") {
        gateway::set_service_fault(arguments[0], std::nullopt);
    } else {
        gateway::set_service_fault(arguments[0], number_from_text<int32_t>("RESULT", arguments[1]));
    }
    return done();
}

ordered_json set_callback(const texts &arguments) {
    if (arguments[1] == "absent") {
        gateway::set_callback(arguments[0], gateway::callback_mode::absent);
    } else if (arguments[1] == "present") {
        gateway::set_callback(arguments[0], gateway::callback_mode::present);
    } else {
        gateway::set_callback(arguments[0], gateway::callback_mode::fixed_result,
                              number_from_text<int32_t>("RESULT", arguments[1]));
    }
    return done();
}

ordered_json show_status(const texts &) {
    ordered_json all{{"mode", agent_mode()},
                     {"started", agent_is_started()},
                     {"listening", server_is_listening()},
                     {"clients", engr_lan_pro_cntl_get_valid_connect_cnt()}};
    all.update(gateway::status());
    return all;
}

/** What a verb of the table in control/ does; the number of its arguments has been checked. */
struct operation {
    const char *verb;
    ordered_json (*carry_out)(const texts &arguments);
};

constexpr operation operations[] = {
    {"status", show_status},
    {"set",
     [](const texts &a) {
         gateway::set_gateway_field(a[0], a[1]);
         return done();
     }},
    {"device",
     [](const texts &a) {
         gateway::set_device_field(a[0], a[1], a[2]);
         return done();
     }},
    {"report", [](const texts &a) { return with_result(gateway::report_data_points(a[0], a[1])); }},
    {"join",
     [](const texts &a) {
         gateway::join_device(a[0], a.size() > 1 ? std::optional(a[1]) : std::nullopt);
         return done();
     }},
    {"network",
     [](const texts &a) {
         gateway::set_network_up(is_first(a[0], "up", "down"));
         return done();
     }},
    {"ip",
     [](const texts &a) {
         gateway::set_address(a[0] == "auto" ? std::nullopt : std::optional(a[0]));
         return done();
     }},
    {"wifi-config-needed",
     [](const texts &a) {
         gateway::set_wifi_config_needed(is_first(a[0], "1", "0"));
         return done();
     }},
    {"wifi-mode",
     [](const texts &a) {
         gateway::set_wifi_mode(number_from_text<uint32_t>("N", a[0]));
         return done();
     }},
    {"airkiss",
     [](const texts &a) {
         gateway::set_airkiss(number_from_text<uint8_t>("STATUS", a[0]),
                              number_from_text<int32_t>("ACTIVE", a[1]));
         return done();
     }},
    {"fault", set_fault},
    {"callback", set_callback},
    {"register",
     [](const texts &a) {
         return with_result(
             gateway::register_frame_handler(number_from_text<int32_t>("FRAME_TYPE", a[0]),
                                             number_from_text<int32_t>("RESULT", a[1])));
     }},
    {"upgrade", [](const texts &a) { return with_result(start_upgrade(a)); }},
    {"call",
     [](const texts &a) {
         return with_result(call_agent(a[0], {a.begin() + 1, a.end()}));
     }},
};

ordered_json carry_out(const control::request &asked) {
    if (const std::string fault = control::usage_fault(asked.verb, asked.arguments.size());
        !fault.empty()) {
        throw gateway::usage_error(fault);
    }
    for (const operation &each : operations) {
        if (asked.verb == each.verb) {
            return each.carry_out(asked.arguments);
        }
    }
    throw std::logic_error("the verb has no operation");
}

} // namespace

std::string answer_request(std::string_view line) {
    const control::request asked = control::parse_request(line);
    if (asked.verb.empty()) {
        return control::error_line(R"(not a request: one line like {"verb": "status", "args": []})",
                                   true);
    }
    try {
        return control::result_line(carry_out(asked));
    } catch (const gateway::usage_error &error) {
        return control::error_line(asked.verb + ": " + error.what(), true);
    } catch (const std::exception &error) {
        return control::error_line(asked.verb + ": " + error.what(), false);
    }
}

} // namespace gatewayd
