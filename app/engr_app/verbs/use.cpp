// use: the gateway that later commands are for.
#include "files/known_gateways.h"
#include "gateway/discovery.h"
#include "gateway/finding.h"
#include "gateway/request.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

struct use_arguments {
    std::string gateway;
    bool none = false;
};

std::string age_text(int64_t seconds) {
    constexpr int64_t minute_s = 60;
    constexpr int64_t hour_s = 60 * minute_s;
    constexpr int64_t day_s = 24 * hour_s;
    const auto ago = [](int64_t count, const char *unit) {
        return fmt::format("{} {}{} ago", count, unit, count == 1 ? "" : "s");
    };
    if (seconds < minute_s) {
        return "less than a minute ago";
    }
    if (seconds < hour_s) {
        return ago(seconds / minute_s, "minute");
    }
    return seconds < day_s ? ago(seconds / hour_s, "hour") : ago(seconds / day_s, "day");
}

int show_used(gateway_session &session) {
    const std::string chosen = chosen_by_use(session.out()).name;
    if (chosen.empty()) {
        return print_result(session, "no gateway is in use; engr_app use GATEWAY chooses one",
                            {{"gateway", nullptr}});
    }
    json document{{"gateway", chosen}};
    std::string sentence = "gateway " + chosen + " is in use";
    if (const auto known = find_known_id(session.out(), chosen)) {
        document["address"] = known->announced.address;
        document["interface"] = known->announced.interface_name;
        document["heard"] = known->heard_s;
        sentence += fmt::format(", heard last at {} on {}, {}", known->announced.address,
                                known->announced.interface_name, age_text(known->age_s()));
    }
    return print_result(session, sentence, document);
}

int use(gateway_session &session, const use_arguments &given) {
    if (given.none && !given.gateway.empty()) {
        throw wrong_usage("use: name a gateway or give --none, not both");
    }
    if (given.none) {
        choose_for_use("");
        return print_result(session, "no gateway is in use any more", {{"gateway", nullptr}});
    }
    if (given.gateway.empty()) {
        return show_used(session);
    }
    const gateway found = find_gateway(session, given.gateway);
    choose_for_use(given.gateway);
    json document{{"gateway", given.gateway}, {"address", found.address}};
    return print_result(session, found.name() + " is in use from now on", document);
}

} // namespace

verb_work declare_use(CLI::App &parser) {
    const auto given = std::make_shared<use_arguments>();
    parser.add_option("GATEWAY", given->gateway,
                      "Its ID or ADDRESS[:PORT]; when left out, the one in use is shown");
    parser.add_flag("--none", given->none, "Use none any more");
    concerns_no_gateway(parser);
    parser.footer("Commands are for that gateway then, unless --gateway, --all, ENGR_GATEWAY or "
                  "the configuration file names another. One that is chosen by its id is found "
                  "again when its address changes; as long as it is where it was heard last, no "
                  "command waits for its announcement.\n\n"
                  "Examples:\n"
                  "  engr_app use 192.168.1.20\n"
                  "  engr_app use\n"
                  "  engr_app use --none");
    return with_arguments(given, use);
}

} // namespace engr_app
