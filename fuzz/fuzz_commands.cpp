// Requests of an app to the reference gateway, one a line: TYPE PAYLOAD. The target makes valid
// frames of them, encrypted where the type wants it.
//
// Each request is answered as its type promises: at most once, with its number, and always where an
// answer is promised. Answers and reports are whole frames under the key in use, and what should be
// JSON is JSON. A request that was refused changes no device.
#include "engr_lan_agent.h"
#include "gateway_services/host.h"
#include "lan_client/crypto.h"
#include "lan_client/frame_types.h"
#include "lan_client/json.h"
#include "lan_client/stream_cutter.h"
#include "support/gateway_world.h"
#include "support/json_mutator.h"
#include "support/require.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <vector>

namespace {

using fuzz::require;
namespace frame_type = lan_client::frame_type;
using lan_client::answer_rule;

constexpr size_t most_requests = 8;
/** A deactivation takes half a second, a segment of the log a third. */
constexpr uint64_t answer_ms = 2000;

struct request {
    uint32_t number;
    uint32_t type;
    std::string_view payload;
    int answers = 0;
    bool refused = false;
};

bool concerns_upgrade(uint32_t type) {
    return type == frame_type::chk_soft_ver || type == frame_type::dev_upgrade_info ||
           type == frame_type::dev_upgrade || type == frame_type::download_firmware;
}

bool must_be_answered(const request &asked) {
    const auto *info = lan_client::find_frame_type(asked.type);
    return info != nullptr && info->answer == answer_rule::always;
}

std::string text_of(const lan_client::frame &got) {
    if (got.payload.empty() || got.segment) {
        return got.payload;
    }
    std::array<uint8_t, lan_client::key_bytes> key{};
    require(engr_lan_get_tcp_key(key.data()) == 0, "a key");
    for (const lan_client::aes_key &one :
         {lan_client::aes_key(key), lan_client::unactivated_key()}) {
        if (auto text = lan_client::decrypt(one, got.payload)) {
            return *text;
        }
    }
    require(false, "an answer under the key in use");
    return {};
}

void check_answer(const lan_client::frame &got, const std::string &text) {
    if (got.type == frame_type::dev_list && got.ret == 0) {
        require(lan_client::parse_json(text).is_object(), "a list to be JSON");
    }
}

void take(const lan_client::frame &got, std::vector<request> &asked) {
    require(got.crc_matches, "frames with a right CRC");
    const std::string text = text_of(got);
    for (request &one : asked) {
        const bool is_keepalive = got.type == frame_type::keepalive; // answered with number 0
        if (one.type == got.type && (one.number == got.number || (is_keepalive && !one.answers))) {
            one.answers += !got.segment || got.segment->number == 1 ? 1 : 0;
            one.refused = got.ret != 0;
            return check_answer(got, text);
        }
    }
    require(got.number == 0, "only answers to what was asked");
    require(text.empty() || lan_client::parse_json(text).is_object(), "reports to be JSON");
}

std::vector<request> requests_of(std::string_view script) {
    std::vector<request> asked;
    while (!script.empty() && asked.size() < most_requests) {
        std::string_view line = script.substr(0, script.find('\n'));
        script.remove_prefix(std::min(line.size() + 1, script.size()));
        request made{.number = static_cast<uint32_t>(asked.size() + 1), .type = 0, .payload = {}};
        for (; !line.empty() && line.front() >= '0' && line.front() <= '9'; line.remove_prefix(1)) {
            made.type = made.type * 10 + static_cast<uint32_t>(line.front() - '0');
        }
        made.payload = line.substr(line.empty() ? 0 : 1);
        asked.push_back(made);
    }
    return asked;
}

void carry_out(const std::vector<request> &requests) {
    fuzz::gateway_world &gateway = fuzz::gateway_world::fresh();
    std::vector<request> asked = requests;
    static const auto devices_at_start = gateway::devices();
    sim::peer app = gateway.connect();
    lan_client::stream_cutter cutter;
    bool any_taken = false;
    for (request &one : asked) {
        const bool encrypted =
            lan_client::request_coding(one.type) == lan_client::payload_coding::encrypted &&
            !one.payload.empty();
        std::array<uint8_t, lan_client::key_bytes> key{};
        require(engr_lan_get_tcp_key(key.data()) == 0, "a key");
        app.send(lan_client::encode_request(
            one.number, one.type,
            encrypted ? lan_client::encrypt(lan_client::aes_key(key), one.payload)
                      : std::string(one.payload)));
        gateway.world().run_for(must_be_answered(one) ? answer_ms : 0);
        cutter.feed(app.receive_available());
        while (const auto got = cutter.next()) {
            take(*got, asked);
        }
        // A start is answered before the image is offered, and once more when that is refused.
        const bool is_second_refusal =
            one.type == frame_type::dev_upgrade && one.answers == 2 && one.refused;
        require(one.answers <= 1 || is_second_refusal, "at most one answer");
        require(one.answers > 0 || !must_be_answered(one), "the answer that the type promises");
        any_taken = any_taken || !one.refused;
        if (concerns_upgrade(one.type)) {
            gateway.mark_changed();
        }
    }
    require(cutter.skipped_bytes() == 0, "nothing but whole frames");
    require(any_taken || gateway::devices() == devices_at_start,
            "refused requests to change no device");
    app.close();
    gateway.settle();
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t most, unsigned seed) {
    return fuzz::mutate_json_line(data, size, most, seed);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto requests = requests_of({reinterpret_cast<const char *>(data), size});
    if (!requests.empty()) {
        carry_out(requests);
    }
    return 0;
}
