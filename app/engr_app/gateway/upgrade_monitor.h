// What a gateway lets an app notice of an upgrade that runs on it.
#pragma once

#include "lan_client/client.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace engr_app {

/// Collects the signs from what a gateway says anyway: its progress reports, the state in the
/// answer to an announcement, and the refusals of a gateway that is upgrading. Used on the loop's
/// thread.
class upgrade_monitor {
  public:
    using clock = std::chrono::steady_clock;

    void hear(const lan_client::report &report);
    void hear(const lan_client::answer &report);

    /// The upgrade is over, as far as can be known.
    void forget() { running_ = false; }

    [[nodiscard]] bool running() const { return running_; }

    /// The device that is upgraded, or empty when no sign named it.
    [[nodiscard]] const std::string &id() const { return id_; }

    /// The gateway refuses device commands, as it does while its own firmware is upgraded.
    [[nodiscard]] bool refuses_commands() const { return refuses_commands_; }

    /// When the last sign came.
    [[nodiscard]] clock::time_point heard() const { return heard_; }

    /// When a sign last showed progress: the first sign, or a greater percentage.
    [[nodiscard]] clock::time_point moved() const { return moved_; }

  private:
    void show(const std::string &id);
    void hear_percent(const lan_client::report &report);

    bool running_ = false;
    bool refuses_commands_ = false;
    std::string id_;
    std::uint64_t percent_ = 0;
    clock::time_point heard_;
    clock::time_point moved_;
};

} // namespace engr_app
