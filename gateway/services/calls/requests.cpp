#include "calls/requests.h"

#include "calls/calls.h"
#include "engr_lan_agent.h"
#include "platform/log.h"
#include "store/changes.h"

#include <nlohmann/json.hpp>

#include <cstring>

namespace gateway {

using nlohmann::ordered_json;

void read_request(const char *text, std::size_t length,
                  const std::function<void(const json_value &request)> &read) {
    read_request(text != nullptr ? std::string_view(text, length) : std::string_view(), read);
}

void read_request(const cJSON *root, const std::function<void(const json_value &request)> &read) {
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(root),
                                                            cJSON_free);
    read_request(text.get(), text ? std::strlen(text.get()) : 0, read);
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
        if (readable != 0) {
            return readable;
        }
        cJSON_Delete(command->root);
        std::string reason;
        const bool is_done = guarded([&] { work(outcome); }, reason) == 0;
        if (!is_done) {
            outcome["reason"] = reason;
        }
        const std::string text =
            outcome.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
        engr_lan_data_report_cb(frame_type, is_done ? 0 : 1, text.data(),
                                static_cast<uint32_t>(text.size()));
        return 0;
    });
}

} // namespace gateway
