// A gateway in virtual time that does what a test tells it, and a record of what happens when.
#pragma once

#include "lan_client/crypto.h"
#include "lan_client/frame.h"
#include "support/fake_network.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

/// What happened, a line each: milliseconds since the beginning, and what it was.
class story {
  public:
    bool has_times = true;

    void note(const std::string &what);
    [[nodiscard]] const std::string &text() const { return text_; }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::string text_;
};

/// Takes one connection after the other. It may send as long as there is one.
class virtual_gateway {
  public:
    virtual_gateway();
    ~virtual_gateway();
    virtual_gateway(const virtual_gateway &) = delete;
    virtual_gateway &operator=(const virtual_gateway &) = delete;

    /// With the payload as it came.
    std::function<void(const lan_client::frame &)> on_request;
    std::function<void()> on_connected;
    bool full = false; ///< closes every new connection at once
    int connections = 0;

    void send(std::string bytes);
    /// Encrypts the text; sends the reply after a while, unless the connection has ended then.
    void reply(const lan_client::frame &request, uint32_t ret, std::string_view text,
               std::chrono::milliseconds after = {});
    void report(uint32_t type, std::string_view text, uint32_t ret = 0);
    void hang_up();

  private:
    void take(std::string_view bytes);

    fuzz::far_end *app_ = nullptr;
    std::string received_;
};

/// The text of a payload under the key that is built in; as it is when it is under no key.
std::string text_of(const lan_client::frame &request);
