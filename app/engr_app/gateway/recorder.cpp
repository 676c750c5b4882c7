// Telling a session file what the clients and listeners of a run see.
#include "gateway/recorder.h"

#include "base/failure.h"
#include "gateway/session.h"
#include "lan_client/discovery.h"
#include "lan_client/provisioning.h"
#include "session/start.h"
#include "support/input_error.h"

#include <cstdint>
#include <utility>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using lan_client::wire_event;
using session::side;

session::file open_record(const std::string &path, console &out) {
    try {
        return {path, [&out](const std::string &what) { out.notice("--record: " + what); }};
    } catch (const support::input_error &error) {
        throw failure("record_file", std::string("--record: ") + error.what());
    }
}

session::header start_of(const global_options &options) {
    session::header start = session::start_now("engr_app", ENGR_VERSION, side::app);
    start.has_secrets = options.records_secrets;
    if (options.records_secrets && !options.local_key.empty()) {
        start.key = options.local_key;
    }
    start.options = nlohmann::ordered_json{
        {"interface", options.interface_name},
        {"gateways", options.gateways},
        {"all",
         options.all}}.dump();
    return start;
}

uint16_t datagram_port(const lan_client::traffic &frame) {
    return frame.discovery ? lan_client::discovery_port
           : frame.sent    ? lan_client::configuration_port
                           : lan_client::wifi_failure_port;
}

session::coding coding_of(lan_client::payload_state state) {
    switch (state) {
    case lan_client::payload_state::decrypted:
        return session::coding::built_in;
    case lan_client::payload_state::unreadable:
        return session::coding::unknown;
    default:
        return session::coding::plain;
    }
}

} // namespace

session_recorder::session_recorder(const global_options &options, screen &shown_on)
    : out_(shown_on, options.json, options.verbose), file_(open_record(options.record_file, out_)),
      live_([] { return std::vector<lan_client::aes_key>(); }) {
    file_.begin(start_of(options));
    live_.listen([this](const session::event &what) { file_.add(what, live_.keys()); });
    live_.on_pause([this] { file_.flush(); });
    live_.begin();
}

session_recorder::~session_recorder() {
    live_.end();
}

lan_client::wire_observer session_recorder::connection_observer(const std::string &local_key) {
    std::vector<lan_client::aes_key> keys;
    if (const auto key = lan_client::aes_key::from_text(local_key)) {
        keys.push_back(*key);
    }
    return [this, keys](const lan_client::wire_notice &notice) {
        const auto connection = reinterpret_cast<uintptr_t>(notice.client);
        switch (notice.event) {
        case wire_event::connected:
            return live_.tell_connected(connection, notice.peer, keys);
        case wire_event::sent:
            return live_.tell_bytes(connection, side::app, notice.bytes);
        case wire_event::received:
            return live_.tell_bytes(connection, side::gateway, notice.bytes);
        case wire_event::closed:
            return live_.tell_closed(connection, notice.by_gateway ? side::gateway : side::app);
        }
    };
}

void session_recorder::take_datagram(const lan_client::traffic &frame) {
    session::frame_content content{.number = frame.number,
                                   .type = frame.type,
                                   .ret = frame.ret,
                                   .segment = {},
                                   .coded = coding_of(frame.state),
                                   .payload = std::string(frame.text),
                                   .crc_matches = frame.crc_matches};
    if (frame.state == lan_client::payload_state::unreadable) {
        content.payload = frame.wire_payload;
    }
    const std::string peer(frame.peer.substr(0, frame.peer.find(':')));
    const std::size_t bytes = content.payload.size();
    live_.tell(session::datagram{frame.sent ? side::app : side::gateway, datagram_port(frame), peer,
                                 std::move(content)},
               bytes);
}

} // namespace engr_app
