// A gateway on a loopback port that does what a test tells it, on the loop of the client.
#pragma once

#include "lan_client/crypto.h"
#include "lan_client/event_loop.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

/// A request as the gateway got it; the payload is not decrypted.
struct seen_request {
    std::uint32_t number = 0;
    std::uint32_t type = 0;
    std::string payload;
};

/// Bytes of a frame from a gateway, written out by hand here so that the library's own codec is
/// not its own judge. `words` stand between the length and the payload: ret, or ret, count, seq.
std::string gateway_frame(std::uint32_t number, std::uint32_t type,
                          std::initializer_list<std::uint32_t> words, std::string_view payload);

class fake_gateway {
  public:
    explicit fake_gateway(lan_client::event_loop &loop);
    ~fake_gateway();

    std::function<void(const seen_request &)> on_request = [](const seen_request &) {};
    bool full = false; ///< closes every new connection at once
    bool deaf = false; ///< reads nothing from new connections
    int connections = 0;

    [[nodiscard]] std::uint16_t port() const;
    void send(std::string bytes);
    /// A reply encrypted with the key, or with an empty payload.
    void reply(const seen_request &request, std::uint32_t ret, std::string_view text,
               const lan_client::aes_key &key = lan_client::unactivated_key());
    void hang_up();

  private:
    struct state;
    std::shared_ptr<state> state_;
};
