// What a handle of the C interface stands for: a thread that runs a loop, and what lives on it.
#pragma once

#include "event_queue.h"
#include "lan_client/client.h"
#include "lan_client/discovery.h"
#include "lan_client/event_loop.h"
#include "upgrade_run.h"
#include "wifi_run.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace lan_client_c {

/** What a handle for provisioning was opened with. */
struct provisioning_options {
    std::string interface_name; /**< empty: any */
    lan_client::aes_key configuration;
    lan_client::aes_key discovery;
};

} // namespace lan_client_c

/**
 * The parts are made on the caller's thread before `start`, and destroyed there after `stop`; in
 * between they are used on the handle's own thread only, by what `post` is given.
 */
struct engr_client {
    engr_client() = default;
    ~engr_client() { stop(); }
    engr_client(const engr_client &) = delete;
    engr_client &operator=(const engr_client &) = delete;

    /** Throws std::system_error when there is no thread to be had. */
    void start();
    void stop();

    /** Adds an event from the loop's thread. */
    void add(std::unique_ptr<lan_client_c::owned_event> event) { events.add(std::move(event)); }

    lan_client_c::event_queue events;
    lan_client::event_loop loop;
    std::optional<lan_client::client> gateway;
    std::chrono::milliseconds request_timeout{0};       /**< of a gateway's client */
    std::shared_ptr<lan_client_c::upgrade_run> upgrade; /**< the latest */
    std::optional<lan_client::discovery_listener> discovery;
    std::optional<lan_client_c::provisioning_options> provisioning;
    std::unique_ptr<lan_client_c::wifi_run> wifi; /**< the latest */
    uint32_t last_request = 0;

  private:
    void run();

    std::thread runner_;
    bool stopping_ = false; // of the loop's thread
};
