#include "calls/requests.h"

#include "calls/calls.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"

#include <nlohmann/json.hpp>

#include <cstring>
#include <memory>
#include <optional>

namespace gateway {
namespace {

using nlohmann::ordered_json;

/** An object may have all data points, and one to spare; as many values as the agent lets pass of
 * what it reads itself, since it hands some requests on unread. */
constexpr support::json_bounds request_bounds = {.members_max = 256, .values_max = 65'536};

} // namespace

void read_request(const char *text, std::size_t length, const request_reader &read) {
    const support::json_document request({text, text == nullptr ? 0 : length}, "request",
                                         request_bounds);
    read(request.root());
}

void read_request(const cJSON *root, const request_reader &read) {
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(root),
                                                            cJSON_free);
    read_request(text.get(), text ? std::strlen(text.get()) : 0, read);
}

int32_t carry_out_operation(uint32_t frame_type, const cJSON *request, operation_reader read) {
    ordered_json outcome;
    operation_work work;
    const int32_t readable = guarded([&] {
        read_request(request, [&](const support::json_value &root) { work = read(root, outcome); });
    });
    if (readable != 0) {
        return readable;
    }
    std::string reason;
    const bool is_done = guarded([&] { work(outcome); }, &reason) == 0;
    if (!is_done) {
        outcome["reason"] = reason;
    }
    const std::string text = outcome.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    engr_lan_data_report_cb(frame_type, is_done ? 0 : 1, text.data(),
                            static_cast<uint32_t>(text.size()));
    return 0;
}

} // namespace gateway
