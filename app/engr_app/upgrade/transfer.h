// One upgrade from the announcement to its end, as the gateway tells it.
#pragma once

#include "gateway/session.h"
#include "gateway/upgrade_status.h"
#include "upgrade/image.h"
#include "upgrade/pieces.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace engr_app {

/**
 * Connects at once; the session's client must not be used by others as long as the course lasts.
 * Its functions throw failures that say how the gateway stands.
 */
class upgrade_transfer {
  public:
    upgrade_transfer(gateway_session &session, const firmware_image &image, upgrade_order order);
    upgrade_transfer(const upgrade_transfer &) = delete;
    upgrade_transfer &operator=(const upgrade_transfer &) = delete;

    /**
     * Asks how the gateway stands and, unless an upgrade is under way, announces the image: with
     * `dry` none at all. A device that the gateway does not know is refused.
     */
    upgrade_status ask_status(bool dry);

    /**
     * Brings the announced image and waits for the end. An upgrade that the gateway gives up is
     * started once more. Returns the standing at the end, with the new version; all else is a
     * failure.
     */
    upgrade_status carry_out(const upgrade_status &before);

  private:
    using clock = std::chrono::steady_clock;

    lan_client::client_events events();
    void hear(const lan_client::report &report);
    void hear_percent(const lan_client::report &report);
    void hear(const lan_client::link_change &change);
    [[nodiscard]] bool is_due() const;
    void tick();
    [[nodiscard]] std::string awaited() const;

    upgrade_status expect_status(const upgrade_order &of, lan_client::request wanted);
    void require_known_device();
    void announce();
    void start();
    void bring();
    void transfer();
    void wait();
    void answer_request();
    void send(const wanted_piece &wanted);
    std::optional<upgrade_status> poll();
    std::optional<upgrade_status> settle();
    [[nodiscard]] bool still_installing() const;

    [[nodiscard]] bool given_up(const std::optional<upgrade_status> &end) const;
    [[nodiscard]] std::string place() const;
    [[nodiscard]] failure not_upgraded(const std::optional<upgrade_status> &end);
    failure abandon(const char *kind, const std::string &why);
    std::optional<upgrade_status> ask_after_leaving();

    gateway_session &session_;
    const firmware_image &image_;
    upgrade_order order_;
    lan_client::client &client_;
    lan_client::timer ticker_;
    std::string gateway_id_;
    upgrade_status before_;

    // What was heard and is not dealt with yet.
    std::deque<std::string> requests_; // for pieces
    std::optional<std::string> refusal_;
    bool version_told_ = false;
    bool interrupted_ = false;

    // Of the present attempt:
    piece_requests pieces_;
    uint64_t taken_ = 0;        // bytes of the image that the gateway has
    bool piece_unsent_ = false; // a piece is still on its way into the network
    bool complete_ = false;     // the gateway has all

    bool started_ = false;
    bool link_lost_ = false;                         // after the start
    std::optional<lan_client::error> no_connection_; // why, as long as there is none
    clock::time_point heard_;                        // the last progress
    std::chrono::milliseconds patience_{0};          // from then on
    progress_bar bar_;
    progress_bar installing_;
    uint64_t installed_percent_ = 0;
    std::optional<clock::time_point> installing_heard_;
};

} // namespace engr_app
