// The gateway of the tests in virtual time.
#include "virtual_gateway.h"

#include "lan_client/frame_types.h"
#include "support/gateway_frame.h"

#include <utility>

using lan_client::encrypt;
using lan_client::unactivated_key;

void story::note(const std::string &what) {
    const auto now = std::chrono::steady_clock::now() - start_;
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    text_ += (has_times ? std::to_string(ms) + " " : "") + what + "\n";
}

virtual_gateway::virtual_gateway() {
    fuzz::far_side &side = fuzz::the_far_side();
    side.on_connected = [this](fuzz::far_end &app) {
        ++connections;
        received_.clear();
        app_ = &app;
        if (full) {
            return hang_up();
        }
        if (on_connected) {
            on_connected();
        }
    };
    side.on_bytes = [this](fuzz::far_end &, std::string_view bytes) { take(bytes); };
}

virtual_gateway::~virtual_gateway() {
    fuzz::the_far_side() = {};
}

void virtual_gateway::take(std::string_view bytes) {
    received_ += bytes;
    for (;;) {
        const auto got = lan_client::decode_request(received_);
        if (got.status != lan_client::decode_status::whole) {
            return;
        }
        received_.erase(0, got.consumed_bytes);
        if (on_request) {
            on_request(got.decoded);
        }
    }
}

void virtual_gateway::send(std::string bytes) {
    app_->send(std::move(bytes));
}

void virtual_gateway::reply(const lan_client::frame &request, uint32_t ret, std::string_view text,
                            std::chrono::milliseconds after) {
    const bool keep_alive = request.type == lan_client::frame_type::keepalive;
    const std::string bytes =
        fuzz::gateway_frame(keep_alive ? 0 : request.number, request.type, {ret},
                            text.empty() ? "" : encrypt(unactivated_key(), text));
    if (after.count() == 0) {
        return send(bytes);
    }
    app_->later([app = app_, bytes] { app->send(bytes); }, after);
}

void virtual_gateway::report(uint32_t type, std::string_view text, uint32_t ret) {
    send(fuzz::gateway_frame(0, type, {ret}, encrypt(unactivated_key(), text)));
}

void virtual_gateway::hang_up() {
    std::exchange(app_, nullptr)->hang_up();
}

std::string text_of(const lan_client::frame &request) {
    return lan_client::decrypt(unactivated_key(), request.payload).value_or(request.payload);
}
