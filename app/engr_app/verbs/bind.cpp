// bind: registers devices with the gateway.
#include "base/counted.h"
#include "base/json_text.h"
#include "files/json_file.h"
#include "gateway/request.h"
#include "verbs/consent.h"
#include "verbs/verb.h"

#include <memory>
#include <unordered_set>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

constexpr std::size_t max_product_id_bytes = 32;

struct bind_arguments {
    std::vector<std::string> devices; // CID:PID each, or one file
    consent asked;
};

json products_of_file(const std::string &file) {
    const support::json_document document = read_json_file(file, "products");
    json products = json::array();
    const std::vector<support::json_value> entries =
        document.root().required("products").elements();
    distinct_ids(entries, "cid");
    for (const support::json_value &entry : entries) {
        products.push_back({{"cid", device_id(entry, "cid")},
                            {"pid", entry.required("pid").text(max_product_id_bytes)}});
    }
    return products;
}

// An id may have colons, as MAC addresses do; the product's has none.
json products_of_arguments(const std::vector<std::string> &given) {
    json products = json::array();
    std::unordered_set<std::string> seen;
    for (const std::string &one : given) {
        const std::size_t colon = one.rfind(':');
        const std::string id = one.substr(0, colon);
        const std::string product =
            colon == std::string::npos ? std::string() : one.substr(colon + 1);
        if (!is_device_id(id) || product.empty() || product.size() > max_product_id_bytes) {
            throw wrong_usage(fmt::format("bind: {} is not of the form CID:PID", one));
        }
        if (!seen.insert(id).second) {
            throw wrong_usage(fmt::format("bind: device {} is given twice", id));
        }
        products.push_back({{"cid", id}, {"pid", product}});
    }
    return products;
}

bool is_file(const std::vector<std::string> &given) {
    return given.size() == 1 && given.front().find(':') == std::string::npos;
}

int bind_devices(gateway_session &session, bind_arguments &given) {
    const json products = is_file(given.devices) ? products_of_file(given.devices.front())
                                                 : products_of_arguments(given.devices);
    given.asked.require(session, "Register " + counted(products.size(), "device"));
    const std::string payload =
        ask_one(session,
                json_request(lan_client::frame_type::user_bind_req_engr, {{"products", products}}));
    const json reply = parse_json(payload);
    const std::string channel = member_text(reply, "channel");
    if (channel.empty()) {
        throw malformed_answer("channel", payload);
    }
    return print_result(
        session,
        fmt::format("{} {} bound to {}, which is on channel {}", counted(products.size(), "device"),
                    products.size() == 1 ? "is" : "are", session.chosen().name(), channel),
        {{"devices", products.size()}, {"channel", reply["channel"]}});
}

} // namespace

verb_work declare_bind(CLI::App &parser) {
    const auto given = std::make_shared<bind_arguments>();
    parser
        .add_option("DEVICES", given->devices,
                    "CID:PID each, or one JSON file with all of them; - reads it from "
                    "standard input")
        ->required();
    given->asked.declare(parser, asked_runs::with_all);
    parser.footer(
        "FILE, whose name has no colon, holds {\"products\": [{\"cid\": "
        "\"a4c1380001000001\", \"pid\":\n\"zbswitch\"}]} or the array alone. Everything is "
        "checked before anything is sent. A device\nthat is bound already keeps its data "
        "points.\n\n"
        "Examples:\n"
        "  engr_app bind a4c1380001000001:zbswitch a4c1380001000002:zbdimmer\n"
        "  engr_app bind devices.json\n"
        "  engr_app devices --json | engr_app bind - --gateway 192.168.1.21");
    return with_arguments(given, bind_devices);
}

} // namespace engr_app
