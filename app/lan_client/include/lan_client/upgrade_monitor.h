// What an app can notice of an upgrade that runs on a gateway.
#pragma once

#include "lan_client/client.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace lan_client {

/**
 * A gateway refuses every device command while its own firmware is upgraded, and this one, which
 * has no data points, at any time. Unlike an announcement it changes nothing.
 *
 * @return a request whose answer is such a sign
 */
[[nodiscard]] request upgrade_probe_request();

/** @return whether the gateway refuses because its own firmware is upgraded */
[[nodiscard]] bool refuses_while_upgrading(const answer &answered);

/**
 * Collects the signs from what a gateway says anyway: its progress reports, the state in the answer
 * to an announcement, and the refusals of a gateway that is upgrading. Used on the loop's thread.
 */
class upgrade_monitor {
  public:
    using clock = std::chrono::steady_clock;

    void on_report(const report &report);
    void on_answer(const answer &answer);

    /** The upgrade is over, as far as can be known. */
    void forget() { running_ = false; }

    [[nodiscard]] bool is_running() const { return running_; }

    /** @return the device that is upgraded; empty when no sign named it */
    [[nodiscard]] const std::string &id() const { return id_; }

    /** @return whether device commands are refused, as while the gateway upgrades itself */
    [[nodiscard]] bool refuses_commands() const { return refuses_commands_; }

    [[nodiscard]] clock::time_point last_sign() const { return last_sign_; }

    /** @return when the first sign came, or a percentage that was greater than the one before */
    [[nodiscard]] clock::time_point last_progress() const { return last_progress_; }

  private:
    void note_running(const std::string &id);
    void on_percent(const report &report);

    bool running_ = false;
    bool refuses_commands_ = false;
    std::string id_;
    uint64_t percent_ = 0;
    clock::time_point last_sign_;
    clock::time_point last_progress_;
};

} // namespace lan_client
