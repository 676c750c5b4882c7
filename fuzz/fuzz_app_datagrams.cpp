// A datagram to an app. The first byte says whether the rest is the datagram, or a text that a
// gateway encrypts, and whether the app looks for gateways or brings one into a network.
//
// Nothing is told of a datagram that is not readable, and all that is told is UTF-8. A text that a
// gateway encrypted is read unless it lacks what makes it an announcement or a failure.
#include "lan_client/discovery.h"
#include "lan_client/frame.h"
#include "lan_client/provisioning.h"
#include "support/fake_network.h"
#include "support/gateway_frame.h"
#include "support/require.h"

#include <nlohmann/json.hpp>
#include <optional>

namespace {

using namespace lan_client;
using fuzz::require;

bool is_utf8(const std::string &text) {
    const nlohmann::json value(text);
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) ==
           value.dump(-1, ' ', false, nlohmann::json::error_handler_t::ignore);
}

void look_for_gateways(std::string_view datagram) {
    std::optional<payload_state> seen;
    const parsed_datagram got = parse_datagram(
        datagram, fuzz::datagram_sender, [&seen](const traffic &frame) { seen = frame.state; });
    require(seen.has_value() == (got.kind != datagram_kind::foreign),
            "the observer to see each frame of a gateway");
    const announcement &told = got.content;
    if (got.kind == datagram_kind::announcement) {
        require(seen == payload_state::decrypted && told.address == fuzz::datagram_sender,
                "an announcement to be decrypted, and its sender to be told");
        for (const std::string *text :
             {&told.announced_address, &told.id, &told.product_key, &told.version}) {
            require(is_utf8(*text), "texts in UTF-8");
        }
    } else {
        require(told.id.empty() && told.address.empty(), "nothing of what is not readable");
    }
}

void bring_into_network(std::string_view datagram, bool is_genuine) {
    bool failed = false;
    event_loop loop;
    fuzz::the_far_side().datagram = datagram;
    provisioning_channel channel(loop, [&](const std::optional<wifi_failure> &told) {
        failed = true;
        if (told) {
            require(is_utf8(told->description) && told->address == fuzz::datagram_sender,
                    "a text in UTF-8 and its sender");
        }
    });
    bool listened = false;
    require(!channel.open("lo"), "the channel to open");
    loop.post([&listened] { listened = true; });
    loop.run_until([&listened] { return listened; }, std::chrono::seconds(60));
    require(failed || !is_genuine, "a gateway's failure to be told");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 2000) {
        return 0;
    }
    const std::string_view rest(reinterpret_cast<const char *>(data) + 1, size - 1);
    const bool encrypts = data[0] % 2 == 0;
    const bool looks = data[0] % 4 < 2;
    const aes_key key = looks ? discovery_key() : configuration_key();
    const uint32_t type = looks ? frame_type::udp_discovery : frame_type::udp_wifi_err;
    const std::string datagram =
        encrypts ? fuzz::gateway_frame(0, type, {0}, encrypt(key, rest)) : std::string(rest);
    if (looks) {
        look_for_gateways(datagram);
    } else {
        bring_into_network(datagram, encrypts);
    }
    return 0;
}
