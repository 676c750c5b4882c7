// One upgrade, from the announcement to its outcome: lan_client does it, this shows and explains.
#pragma once

#include "gateway/answers.h"
#include "gateway/session.h"
#include "lan_client/image_upgrade.h"
#include "upgrade/image.h"

#include <cstdint>
#include <functional>
#include <memory>
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
     * up, or that ends with the connection, is started once more.
     *
     * @return the status with the new version
     * @throws failure when that is not installed in the end
     */
    upgrade_status carry_out();

  private:
    lan_client::client_events events();
    lan_client::image_upgrade::callbacks upgrade_events();
    bool read_image(std::string &bytes, uint64_t offset, std::size_t count);
    void enter(lan_client::upgrade_step step);
    void show_progress();
    void tick();
    [[nodiscard]] std::string waiting_text() const;
    void end_bars();

    [[nodiscard]] lan_client::upgrade_answer ask(lan_client::client &asked,
                                                 const lan_client::upgrade_question &question);
    [[nodiscard]] std::string position_text() const;
    [[nodiscard]] std::string broken_off_text() const;
    [[nodiscard]] failure not_upgraded(const lan_client::upgrade_outcome &outcome);
    failure abandon(const char *kind, const std::string &why);
    [[nodiscard]] failure abandon_broken(const lan_client::upgrade_outcome &outcome);
    std::optional<upgrade_status> ask_after_leaving();

    gateway_session &session_;
    const firmware_image &image_;
    upgrade_order order_;
    lan_client::client &client_;
    lan_client::timer ticker_;
    lan_client::upgrade_answer before_;
    std::unique_ptr<lan_client::image_upgrade> upgrade_; // since the start
    std::optional<lan_client::upgrade_outcome> outcome_;
    bool interrupted_ = false;
    std::optional<failure> image_problem_;
    std::optional<lan_client::error> connection_error_; // why, as long as there is none
    progress_bar bar_;
    progress_bar install_bar_;
    bool installing_ = false; // the gateway has told percents
};

} // namespace engr_app
