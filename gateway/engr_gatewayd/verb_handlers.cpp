#include "verb_handlers.h"

#include "agent_calls.h"
#include "agent_run.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"
#include "gateway_services/host.h"
#include "gateway_services/operate.h"
#include "happenings.h"
#include "server_watch.h"
#include "support/numbers.h"
#include "verbs.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <exception>
#include <iterator>

namespace gatewayd {
namespace {

using nlohmann::ordered_json;
using texts = std::vector<std::string>;

/** The reply of a verb that succeeded and has no result. */
ordered_json done() {
    return {{"ok", true}};
}
/** The reply of a verb that called the agent. */
ordered_json with_result(ordered_json result) {
    return {{"result", std::move(result)}};
}

/**
 * The reply of a verb that has the agent do something.
 *
 * @throws gateway::refused  the agent has not done it
 */
ordered_json with_success(int32_t result) {
    if (result != 0) {
        throw gateway::refused(fmt::format("the agent refused: result {}", result));
    }
    return with_result(result);
}

/** Whether an argument is the first of two words. */
bool is_first(const std::string &text, const std::string &first, const std::string &second) {
    if (text != first && text != second) {
        throw gateway::usage_error(fmt::format("'{}' is neither {} nor {}", text, first, second));
    }
    return text == first;
}

ordered_json set_fault(const texts &arguments) {
    if (arguments[1] == "off") {
        gateway::set_service_fault(arguments[0], std::nullopt);
    } else {
        gateway::set_service_fault(arguments[0],
                                   support::need_whole_number<int32_t>("RESULT", arguments[1]));
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
                              support::need_whole_number<int32_t>("RESULT", arguments[1]));
    }
    return done();
}

constexpr const char *upgrade_usage =
    "usage: start [--cid ID] [--file-size N] [--chunk-size N] [--percent 0|1] [--remain N]";

void set_upgrade_option(gateway::upgrade_start &wanted, const std::string &name,
                        const std::string &value) {
    if (name == "--cid") {
        wanted.cid = value;
    } else if (name == "--file-size") {
        wanted.file_size = support::need_whole_number<uint32_t>(name, value);
    } else if (name == "--chunk-size") {
        wanted.chunk_size = support::need_whole_number<uint32_t>(name, value);
    } else if (name == "--percent") {
        wanted.percent = support::need_whole_number<uint32_t>(name, value) != 0;
    } else if (name == "--remain") {
        wanted.remain = support::need_whole_number<uint32_t>(name, value);
    } else {
        throw gateway::usage_error(fmt::format("unknown option '{}'; {}", name, upgrade_usage));
    }
}

ordered_json start_upgrade(const texts &arguments) {
    if (arguments.front() != "start" || arguments.size() % 2 == 0) {
        throw gateway::usage_error(upgrade_usage);
    }
    gateway::upgrade_start wanted;
    for (std::size_t i = 1; i < arguments.size(); i += 2) {
        set_upgrade_option(wanted, arguments[i], arguments[i + 1]);
    }
    return with_success(gateway::start_upgrade(wanted));
}

/** Data points as JSON, or as DP=VALUE; what is neither JSON's true, false nor a number is text. */
std::string given_data_points(const texts &arguments) {
    if (arguments.size() == 2 && arguments[1].starts_with('{')) {
        return arguments[1];
    }
    auto dps = ordered_json::object();
    for (auto each = arguments.begin() + 1; each != arguments.end(); ++each) {
        const std::size_t sign = each->find('=');
        if (sign == std::string::npos) {
            throw gateway::usage_error(fmt::format("'{}' is not DP=VALUE, as in 1=true", *each));
        }
        const std::string text = each->substr(sign + 1);
        const auto value = ordered_json::parse(text, nullptr, false);
        const bool is_plain = value.is_boolean() || value.is_number();
        dps[each->substr(0, sign)] = is_plain ? value : ordered_json(text);
    }
    return dps.dump();
}

ordered_json report_data_points(const texts &arguments) {
    const int32_t result = gateway::report_data_points(arguments[0], given_data_points(arguments));
    if (result == ENGR_ERR_NO_CLIENT) {
        throw gateway::refused("the data points are stored, but no app is connected to be told");
    }
    return with_result(result);
}

/** Carries out a verb; the number of its arguments has been checked. */
struct verb_handler {
    std::string_view verb;
    ordered_json (*carry_out)(const texts &arguments);
};

/** In the order of control::verbs. */
constexpr verb_handler handlers[] = {
    {"status", [](const texts &) { return gateway_status(); }},
    {"devices", [](const texts &) { return gateway::devices(); }},
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
    {"report", report_data_points},
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
         gateway::set_wifi_mode(support::need_whole_number<uint32_t>("N", a[0]));
         return done();
     }},
    {"airkiss",
     [](const texts &a) {
         gateway::set_airkiss(support::need_whole_number<uint8_t>("STATUS", a[0]),
                              support::need_whole_number<int32_t>("ACTIVE", a[1]));
         return done();
     }},
    {"fault", set_fault},
    {"callback", set_callback},
    {"register",
     [](const texts &a) {
         return with_success(gateway::register_frame_handler(
             support::need_whole_number<int32_t>("FRAME_TYPE", a[0]),
             support::need_whole_number<int32_t>("RESULT", a[1])));
     }},
    {"upgrade", start_upgrade},
    {"call",
     [](const texts &a) {
         return with_result(call_agent(a[0], {a.begin() + 1, a.end()}));
     }},
};

static_assert(std::equal(std::begin(handlers), std::end(handlers), std::begin(control::verbs),
                         std::end(control::verbs),
                         [](const verb_handler &handler, const control::verb &verb) {
                             return handler.verb == verb.name;
                         }),
              "every verb has its handler, in the order of the table");

ordered_json carry_out(const control::request &request) {
    if (const std::string fault = control::usage_fault(request.verb, request.arguments.size());
        !fault.empty()) {
        throw gateway::usage_error(fault);
    }
    const auto *const handler =
        std::find_if(std::begin(handlers), std::end(handlers),
                     [&](const verb_handler &each) { return each.verb == request.verb; });
    return handler->carry_out(request.arguments);
}

std::string answer_to(const control::request &request) {
    if (request.verb.empty()) {
        return control::error_line(R"(not a request: one line like {"verb": "status", "args": []})",
                                   true);
    }
    try {
        return control::result_line(carry_out(request));
    } catch (const gateway::usage_error &error) {
        return control::error_line(fmt::format("{}: {}", request.verb, error.what()), true);
    } catch (const std::exception &error) {
        return control::error_line(fmt::format("{}: {}", request.verb, error.what()), false);
    }
}

} // namespace

ordered_json gateway_status() {
    ordered_json all{{"mode", agent_mode()},
                     {"started", agent_is_started()},
                     {"listening", server_is_listening()},
                     {"clients", engr_lan_pro_cntl_get_valid_connect_cnt()}};
    all.update(gateway::status());
    return all;
}

std::string answer_request(std::string_view line) {
    const uint64_t began_us = happenings_time();
    const control::request request = control::parse_request(line);
    std::string answer = answer_to(request);
    std::vector<std::string> words{request.verb};
    words.insert(words.end(), request.arguments.begin(), request.arguments.end());
    tell_control(began_us, words, std::string_view(answer).substr(0, answer.find('\n')));
    return answer;
}

} // namespace gatewayd
