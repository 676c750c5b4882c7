// The C interface with a gateway that does what the input says (support/hostile_gateway.h), or with
// a datagram: the first byte chooses. Its thread is left out, so that the order of things is that
// of the input.
//
// Each request that was taken on has one answer, with its id. All texts of an event exist and end
// where they say. No exception leaves the library.
#include "handle.h"
#include "lan_client/frame_types.h"
#include "support/gateway_frame.h"
#include "support/hostile_gateway.h"
#include "support/require.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>

// In the place of the library's: the target runs the loop itself.
void engr_client::start() {}
void engr_client::stop() {}
void engr_client::run() {}

namespace {

using fuzz::require;

constexpr const char *local_key = "local-key-of-gw1";
/** A bound against hanging, in virtual time. */
constexpr auto limit = std::chrono::hours(1000);
const std::string image_file = std::filesystem::temp_directory_path() / "engr_fuzz_c_image.bin";

void check_texts(const engr_client_event &event) {
    require(event.error_text != nullptr && event.payload != nullptr && event.address != nullptr,
            "texts to exist");
    require(event.payload[event.payload_bytes] == '\0', "a zero byte behind the payload");
    if (const engr_client_announcement *told = event.announcement) {
        for (const char *text :
             {told->id, told->address, told->product_key, told->version, told->interface_name}) {
            require(text != nullptr && std::strlen(text) < 2000, "texts of an announcement");
        }
    }
    require(engr_client_error_name(event.error) != nullptr, "a name for each error");
}

class caller {
  public:
    explicit caller(engr_client &client) : client_(client) {}

    void ask(uint32_t type, std::string_view text) {
        uint32_t id = 0;
        engr_client_error result = ENGR_CLIENT_OK;
        if (type == lan_client::frame_type::dev_list) {
            result = engr_client_devices(&client_, 0, &id);
        } else if (type == lan_client::frame_type::get_log) {
            result = engr_client_log(&client_, &id);
        } else if (type == lan_client::frame_type::download_firmware) {
            result = engr_client_upgrade(&client_, image_file.c_str(), "2.0", "", false, &id);
        } else if (type == lan_client::frame_type::dev_upgrade) {
            result = engr_client_upgrade(&client_, image_file.c_str(), "2.0", "a1", true, &id);
        } else {
            result = engr_client_request(&client_, type, text.data(), text.size(), 0, &id);
        }
        require((result == ENGR_CLIENT_OK) == (id != 0), "an id for what was taken on");
        if (id != 0) {
            require(open_.emplace(id, 0).second, "a new id");
        }
    }

    void provision(bool force) {
        engr_client_network network{};
        network.size = sizeof network;
        network.network = "attic";
        network.token = "t0ken";
        network.force = force;
        uint32_t id = 0;
        require(engr_client_provision(&client_, &network, &id) == ENGR_CLIENT_OK, "a request");
        open_.emplace(id, 0);
    }

    void take_events() {
        while (engr_client_event *event = engr_client_next_event(&client_)) {
            check_texts(*event);
            ended_ = ended_ || event->kind == ENGR_CLIENT_DISCONNECTED;
            if (event->kind == ENGR_CLIENT_ANSWER) {
                require(open_.contains(event->request) && ++open_[event->request] == 1,
                        "one answer for each request");
            }
            engr_client_free_event(event);
        }
    }

    [[nodiscard]] bool ended() const { return ended_; }

    [[nodiscard]] bool all_answered() const {
        return std::ranges::all_of(open_, [](const auto &one) { return one.second == 1; });
    }

  private:
    engr_client &client_;
    std::map<uint32_t, int> open_;
    bool ended_ = false;
};

void talk_to_gateway(std::string_view script) {
    fuzz::hostile_gateway gateway(script, *lan_client::aes_key::from_text(local_key), false);
    engr_client_options options{};
    options.size = sizeof options;
    options.address = fuzz::datagram_sender;
    options.local_key = local_key;
    engr_client *client = nullptr;
    require(engr_client_open_gateway(&options, &client) == ENGR_CLIENT_OK, "a client");
    caller app(*client);
    gateway.on_ask = [&app](uint32_t type, std::string_view text) { app.ask(type, text); };
    const auto done = [&] {
        app.take_events();
        return app.ended() && app.all_answered();
    };
    require(client->loop.run_until(done, limit), "all requests to be answered");
    engr_client_close(client);
}

void listen(std::string datagram) {
    fuzz::the_far_side().datagram = std::move(datagram);
    engr_client_options options{};
    options.size = sizeof options;
    engr_client *client = nullptr;
    require(engr_client_open_discovery(&options, &client) == ENGR_CLIENT_OK, "a client");
    client->loop.run_until([] { return false; }, std::chrono::milliseconds(0));
    caller(*client).take_events();
    engr_client_close(client);
}

// The datagram comes to each port that is listened on.
void provision(std::string datagram, bool force) {
    fuzz::the_far_side().datagram = std::move(datagram);
    engr_client_options options{};
    options.size = sizeof options;
    options.interface_name = "lo";
    engr_client *client = nullptr;
    require(engr_client_open_provisioning(&options, &client) == ENGR_CLIENT_OK, "a client");
    caller app(*client);
    app.provision(force);
    const auto done = [&app] {
        app.take_events();
        return app.all_answered();
    };
    require(client->loop.run_until(done, limit), "an outcome");
    engr_client_close(client);
}

std::string announcement(std::string_view text) {
    return fuzz::gateway_frame(0, lan_client::frame_type::udp_discovery, {0},
                               lan_client::encrypt(lan_client::discovery_key(), text));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    std::ofstream(image_file) << std::string(3000, 'i');
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view rest(reinterpret_cast<const char *>(data) + 1, size - 1);
    switch (data[0]) {
    case 'a':
        listen(announcement(rest));
        break;
    case 'n':
        provision(announcement(rest), false);
        break;
    case 'f':
        provision(fuzz::gateway_frame(0, lan_client::frame_type::udp_wifi_err, {0},
                                      lan_client::encrypt(lan_client::configuration_key(), rest)),
                  true);
        break;
    default:
        talk_to_gateway(rest);
        break;
    }
    return 0;
}
