// Frame handlers that return a fixed result. The agent hands a handler nothing but the request, so
// each registration needs a function of its own.
#include "calls/calls.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/owners.h"
#include "store/records.h"

#include <fmt/format.h>

#include <array>
#include <atomic>
#include <utility>

namespace gateway {
namespace {

/** One more than the agent's table takes, so that the refusal can be seen. */
constexpr std::size_t handlers_max = 21;

std::array<std::atomic<int32_t>, handlers_max> results;
std::size_t handlers_used; // guarded by change_mutex

template <std::size_t Slot>
int handle_frame(cJSON *root) {
    return service_taking_request(call("lan_protocol_cb"), root,
                                  [] { return results[Slot].load(); });
}

template <std::size_t... Slot>
constexpr std::array<lan_protocol_cb_t, sizeof...(Slot)>
make_handlers(std::index_sequence<Slot...>) {
    return {handle_frame<Slot>...};
}
constexpr auto handlers = make_handlers(std::make_index_sequence<handlers_max>());

} // namespace

int32_t register_frame_handler(int32_t frame_type, int32_t result) {
    const platform::held_mutex change(change_mutex());
    if (handlers_used == handlers_max) {
        throw refused(fmt::format("all {} frame handlers are in use", handlers_max));
    }
    results[handlers_used] = result;
    const int32_t registered = engr_lan_protocol_register_cb(frame_type, handlers[handlers_used]);
    if (registered == 0) {
        ++handlers_used;
    }
    return registered;
}

} // namespace gateway
