// One upgrade, from the announcement to its outcome.
#pragma once

#include "gateway/answers.h"
#include "gateway/session.h"
#include "lan_client/image_pieces.h"
#include "upgrade/image.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace engr_app {

/**
 * Connects at once; nobody else may use the session's client as long as this exists. Its functions
 * throw failures that tell the state of the gateway.
 */
class upgrade_transfer {
  public:
    upgrade_transfer(gateway_session &session, const firmware_image &image, upgrade_order order);
    upgrade_transfer(const upgrade_transfer &) = delete;
    upgrade_transfer &operator=(const upgrade_transfer &) = delete;

    /**
     * Asks for the status and, unless an upgrade is under way, announces the image.
     *
     * @param dry  announce nothing
     * @throws failure for a device that the gateway does not know
     */
    upgrade_status ask_status(bool dry);

    /**
     * Transfers the announced image and waits for the outcome. An upgrade that the gateway gives
     * up is started once more.
     *
     * @return the status with the new version
     * @throws failure when that is not installed in the end
     */
    upgrade_status carry_out(const upgrade_status &before);

  private:
    using clock = std::chrono::steady_clock;

    lan_client::client_events events();
    void on_report(const lan_client::report &report);
    void on_install_progress(const lan_client::report &report);
    void on_link(const lan_client::link_change &change);
    [[nodiscard]] bool is_due() const;
    void tick();
    [[nodiscard]] std::string waiting_text() const;

    upgrade_status expect_status(const upgrade_order &of, lan_client::request wanted);
    void require_known_device();
    void announce();
    void start();
    void transfer_image();
    void answer_requests();
    void wait();
    void answer_request();
    void send(const lan_client::piece_request &wanted);
    std::optional<upgrade_status> poll();
    std::optional<upgrade_status> await_outcome();
    [[nodiscard]] bool still_installing() const;

    [[nodiscard]] bool has_given_up(const std::optional<upgrade_status> &end) const;
    [[nodiscard]] std::string position_text() const;
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

    // Received and not handled yet:
    std::deque<std::string> requests_; // for pieces
    std::optional<std::string> refusal_;
    bool version_reported_ = false;
    bool interrupted_ = false;

    // Of the current attempt:
    lan_client::piece_requests pieces_;
    uint64_t transferred_bytes_ = 0; // bytes of the image that the gateway has
    bool is_sending_piece_ = false;  // a piece is not sent completely
    bool complete_ = false;          // the gateway has the whole image

    bool started_ = false;
    bool link_lost_ = false;                            // after the start
    std::optional<lan_client::error> connection_error_; // why, as long as there is none
    clock::time_point last_progress_;                   // the last progress
    std::chrono::milliseconds progress_timeout_{0};     // from then on
    progress_bar bar_;
    progress_bar install_bar_;
    uint64_t install_percent_ = 0;
    std::optional<clock::time_point> last_install_report_;
};

} // namespace engr_app
