#include "compare/recording.h"

#include <optional>

namespace replay {
namespace {

/** Whether the gateway did it. A connection that broke is the app's doing. */
bool is_of_gateway(const std::optional<session::side> &by) {
    return by == session::side::gateway;
}

struct app_event_reader {
    uint32_t operator()(const session::connected &of) const { return of.client; }
    uint32_t operator()(const session::closed &of) const {
        return is_of_gateway(of.by) ? 0 : of.client;
    }
    uint32_t operator()(const session::frame &of) const {
        return of.from == session::side::app ? of.client : 0;
    }
    uint32_t operator()(const session::raw_bytes &of) const {
        return of.from == session::side::app ? of.client : 0;
    }
    template <typename Other>
    uint32_t operator()(const Other &) const {
        return 0;
    }
};

} // namespace

uint64_t end_of(const recording &of) {
    return of.events.empty() ? 0 : of.events.back().at_us;
}

uint32_t client_of_app_event(const session::event &of) {
    return std::visit(app_event_reader{}, of.what);
}

} // namespace replay
