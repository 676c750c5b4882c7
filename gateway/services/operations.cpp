#include "operations.h"

#include "calls.h"
#include "changes.h"
#include "engr_lan_agent.h"
#include "platform/log.h"

#include <nlohmann/json.hpp>

namespace gateway {
namespace {

using nlohmann::ordered_json;

const std::string request_name = "request";

} // namespace

void read_request(const char *text, std::size_t length,
                  const std::function<void(const json_value &request)> &read) {
    const auto json =
        ordered_json::parse(std::string_view(text == nullptr ? "" : text, length), nullptr, false);
    if (json.is_discarded())
        throw usage_error(request_name + ": is not valid JSON in UTF-8");
    read({request_name, "", json});
}

void read_request(const cJSON *root, const std::function<void(const json_value &request)> &read) {
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(root),
                                                            cJSON_free);
    read_request(text.get(), text ? std::string_view(text.get()).size() : 0, read);
}

int32_t take_operation(std::size_t number, uint32_t frame_type, sf_cmd_t *command,
                       operation_reader read) {
    return service_taking_request(number, command, [&] {
        ordered_json outcome;
        operation_work work;
        const int32_t readable = guarded([&] {
            read_request(command->root,
                         [&](const json_value &request) { work = read(request, outcome); });
        });
        if (readable != 0)
            return readable;
        cJSON_Delete(command->root);
        std::string reason;
        const bool is_done = guarded([&] { work(outcome); }, reason) == 0;
        if (!is_done)
            outcome["reason"] = reason;
        const std::string text =
            outcome.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
        engr_lan_data_report_cb(frame_type, is_done ? 0 : 1, text.data(),
                                static_cast<uint32_t>(text.size()));
        return 0;
    });
}

} // namespace gateway
