// A gateway and an app that upgrades it, in virtual time.
#pragma once

#include "lan_client/client.h"
#include "lan_client/image_upgrade.h"
#include "virtual_gateway.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <utility>

inline const lan_client::upgrade_order gateway_order{"", "2.0", 100, "m"};
inline const lan_client::upgrade_order device_order{"a", "2.0", 100, "m"};

/// A gateway's request for a piece.
std::string wanted_piece(int offset, int bytes);

/// The app waits 1 s for each answer.
class upgrade_scene {
  public:
    explicit upgrade_scene(lan_client::upgrade_order wanted = gateway_order);
    upgrade_scene(const upgrade_scene &) = delete;
    upgrade_scene &operator=(const upgrade_scene &) = delete;

    void begin();
    void pass(std::chrono::milliseconds time);

    /// What happens within an hour or the time given.
    std::string tell(std::chrono::milliseconds time = std::chrono::hours(1));
    /// The same without times, since the pauses before a new connection are left to chance.
    std::string tell_without_times();

    void at(std::chrono::milliseconds when, std::function<void()> work);
    /// From then on the gateway is idle and says that this version is installed.
    void installs(std::chrono::milliseconds when, const std::string &installed);
    void reports_percent(std::chrono::milliseconds when, int percent, const std::string &id = "gw");

    lan_client::event_loop loop;
    virtual_gateway gateway;
    story told_story;

    // What the gateway does:
    using replies = std::deque<std::pair<uint32_t, std::string>>;
    std::deque<std::string> wants{wanted_piece(0, 60), wanted_piece(60, 40), wanted_piece(100, 0)};
    replies starts;    ///< to starts, before it accepts one
    replies announced; ///< to announcements, before it accepts one
    bool running = false;
    std::string running_id = "gw";
    std::string version = "1.0";
    std::deque<std::chrono::milliseconds> delays; ///< of the next answers with a status
    std::function<void()> on_piece;               ///< once, in the place of the next request
    bool asks_early = false;                      ///< for a piece, before it accepts the start
    bool shows_polls = false;

    // What the app does, and is told:
    lan_client::upgrade_order order;
    lan_client::upgrade_status before{
        .running = false, .running_id = "", .target_id = "gw", .version = "1.0"};
    bool can_read = true; ///< the image
    int progress = 0;
    int answers = 0;
    std::function<void()> on_answer; ///< called with each of these
    std::string others;              ///< types of the reports that are not for the upgrade alone
    std::optional<lan_client::client> app;
    std::optional<lan_client::image_upgrade> run;

  private:
    void note(const lan_client::upgrade_outcome &outcome);
    void take(const lan_client::frame &seen);
    void answer_announcement(const lan_client::frame &seen);
    void want_next();
};
