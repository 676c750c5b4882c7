// A client of a gateway that does what the input says (support/hostile_gateway.h), with all that
// the library reads of a gateway: devices, data points, the log, upgrades.
//
// Each request has one outcome, the one of its own type, also when the connection ends. All that is
// sent is encrypted with the local key, whatever the gateway answers with; what came under another
// key is not read. A gateway gets no byte beyond the image. What may be kept is bounded.
#include "lan_client/client.h"
#include "lan_client/data_points.h"
#include "lan_client/devices.h"
#include "lan_client/image_sender.h"
#include "lan_client/json.h"
#include "lan_client/log_transfer.h"
#include "lan_client/upgrade_monitor.h"
#include "lan_client/upgrade_status.h"
#include "support/hostile_gateway.h"
#include "support/require.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <vector>

namespace {

using namespace lan_client;
using fuzz::require;

constexpr uint64_t image_bytes = 100'000;
constexpr auto answer_time = std::chrono::seconds(60);
/** A bound against hanging, in virtual time. */
constexpr auto limit = std::chrono::hours(1000);

const aes_key &local_key() {
    static const aes_key key = *aes_key::from_text("local-key-of-gw1");
    return key;
}

bool is_utf8_json(const nlohmann::json &value) {
    return !value.dump().empty(); // throws for a text that is not UTF-8
}

/** Reads a payload as everything that it might be. */
void read_as_all(const std::string &payload) {
    is_utf8_json(parse_device_state(payload));
    const auto devices = read_device_list(payload);
    const auto states = read_line_state(payload);
    if (devices && states) {
        require(with_states(*devices, *states).size() == devices->size(),
                "each device to keep its place");
    }
    const upgrade_order order{"a1", "1.0", image_bytes, "md5"};
    static_cast<void>(read_upgrade_status(order, payload));
    const nlohmann::json value = parse_json(payload);
    if (!value.is_discarded()) {
        require(parse_json(value.dump()) == value, "JSON that was written again to be the same");
    }
}

class app {
  public:
    explicit app(std::string_view script) : gateway_(script, local_key(), false) {
        client_options wanted;
        wanted.address = fuzz::datagram_sender;
        wanted.keys = {local_key()};
        wanted.request_timeout = answer_time;
        client_events events;
        events.on_report = [this](const report &told) { take(told); };
        events.on_link = [this](const link_change &change) {
            ended_ = ended_ || change.state == link_state::lost;
        };
        events.on_traffic = [](const traffic &frame) {
            if (frame.sent && frame.state == payload_state::decrypted) {
                require(frame.wire_payload == encrypt(local_key(), frame.text),
                        "the local key alone to be used");
            }
        };
        client_.emplace(loop_, std::move(wanted), std::move(events));
        sender_.emplace(
            *client_, image_bytes, std::vector<std::string>{"a1", "gw1"}, answer_time,
            [](std::string &bytes, uint64_t offset, size_t count) {
                require(offset <= image_bytes && count <= image_bytes - offset,
                        "only bytes of the image to be read");
                bytes.append(count, 'i');
                return true;
            },
            [this] { require(sender_->taken_bytes() <= image_bytes, "no more than the image"); });
        gateway_.on_ask = [this](uint32_t type, std::string_view text) { ask(type, text); };
        client_->open();
    }

    void run() {
        require(loop_.run_until([this] { return ended_; }, limit), "the connection to end");
        client_->close();
        require(std::ranges::all_of(outcomes_, [](int count) { return count == 1; }),
                "each request to have one outcome");
        require(client_->unsent_bytes() == 0, "nothing to wait for a connection that has ended");
    }

  private:
    void ask(uint32_t type, std::string_view text) {
        const size_t at = outcomes_.size();
        outcomes_.push_back(0);
        request wanted{.type = type, .payload = std::string(text), .coding = request_coding(type)};
        if (type == frame_type::get_log) {
            logs_.push_back(
                std::make_unique<log_transfer>(*client_, answer_time, [](auto, auto) {}));
            wanted = logs_.back()->wanted();
        }
        client_->ask(std::move(wanted), [this, at, type](const answer &got) {
            ++outcomes_[at];
            require(got.type == type, "an answer of the type that was asked");
            require(!got.failure || got.payload.empty() || type == frame_type::get_log,
                    "a failure to hand over nothing but the beginning of a log");
            monitor_.on_answer(got);
            static_cast<void>(says_no_devices(got));
            read_once(got.payload);
        });
        require(client_->unsent_bytes() <= 2 * max_request_bytes_under_way,
                "what waits to be bounded");
    }

    void take(const report &told) {
        require(told.readable || told.payload.empty(), "nothing of what is not readable");
        monitor_.on_report(told);
        if (!sender_->take(told)) {
            static_cast<void>(contains(told, "a1", {"1", "2"}));
            read_once(told.payload);
        }
    }

    /** A payload that comes again means the same; most failures have the empty one. */
    void read_once(const std::string &payload) {
        if (read_.insert(payload).second) {
            read_as_all(payload);
        }
    }

    event_loop loop_;
    fuzz::hostile_gateway gateway_;
    std::optional<client> client_;
    std::optional<image_sender> sender_;
    upgrade_monitor monitor_;
    std::vector<std::unique_ptr<log_transfer>> logs_;
    std::vector<int> outcomes_;
    std::set<std::string> read_;
    bool ended_ = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    app({reinterpret_cast<const char *>(data), size}).run();
    return 0;
}
