// bind: enters the installer's list of devices into the gateway.
#include "base/json_text.h"
#include "files/json_file.h"
#include "gateway/request.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

constexpr std::size_t max_product_id_bytes = 32;

int bind_devices(gateway_session &session, const std::string &file) {
    const support::json_document document = read_json_file(file, "products");
    json products = json::array();
    const std::vector<support::json_value> entries =
        document.root().required("products").elements();
    distinct_ids(entries, "cid");
    for (const support::json_value &entry : entries) {
        products.push_back({{"cid", device_id(entry, "cid")},
                            {"pid", entry.required("pid").text(max_product_id_bytes)}});
    }
    const std::string payload =
        ask_one(session,
                json_request(lan_client::frame_type::user_bind_req_engr, {{"products", products}}));
    const json reply = parse_json(payload);
    const std::string channel = member_text(reply, "channel");
    if (channel.empty()) {
        throw malformed_answer("channel", payload);
    }
    return print_result(session,
                        fmt::format("{} device(s) are bound to {}, which is on channel {}",
                                    products.size(), session.chosen().name(), channel),
                        {{"devices", products.size()}, {"channel", reply["channel"]}});
}

} // namespace

verb_work declare_bind(CLI::App &parser) {
    const auto file = std::make_shared<std::string>();
    parser.add_option("FILE", *file, "JSON file with the devices; - reads it from standard input")
        ->required();
    parser.footer("FILE holds {\"products\": [{\"cid\": \"a4c1380001000001\", \"pid\": "
                  "\"zbswitch\"}]} or the array\nalone. It is checked before anything is sent. A "
                  "device that is bound already keeps its\ndata points.\n\n"
                  "Examples:\n"
                  "  engr_app bind devices.json\n"
                  "  engr_app devices --json | engr_app bind - --gateway 192.168.1.21");
    return with_arguments(file, bind_devices);
}

} // namespace engr_app
