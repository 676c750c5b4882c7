// One upgrade from the announcement to its end, as the gateway tells it.
#pragma once

#include "firmware_image.h"
#include "session.h"
#include "upgrade_words.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace engr_app {

/// Connects at once; the session's client must not be used by others as long as the course lasts.
/// Its functions throw failures that say how the gateway stands.
class upgrade_course {
  public:
    upgrade_course(session &present, const firmware_image &image, upgrade_order order);
    upgrade_course(const upgrade_course &) = delete;
    upgrade_course &operator=(const upgrade_course &) = delete;

    /// Announces the image, or only asks for the standing with the request that does. A device that
    /// the gateway does not know is refused.
    upgrade_standing ask_standing(lan_client::request wanted);

    /// Brings the announced image and waits for the end. Returns the standing then, with the new
    /// version; all else is a failure.
    upgrade_standing carry_out(const upgrade_standing &before);

  private:
    using clock = std::chrono::steady_clock;

    lan_client::client_events events();
    void hear(const lan_client::report &told);
    void hear_percent(const lan_client::report &told);
    void wait(std::chrono::milliseconds limit);

    void start();
    void transfer();
    void answer(const std::string &request, progress_bar &bar);
    void send(const wanted_piece &wanted);
    std::optional<upgrade_standing> poll();
    std::optional<upgrade_standing> settle();
    [[nodiscard]] bool still_installing() const;

    [[nodiscard]] std::string place() const;
    [[nodiscard]] failure not_upgraded(const std::optional<upgrade_standing> &end);
    failure abandon(const char *kind, const std::string &why);

    session &present_;
    const firmware_image &image_;
    upgrade_order order_;
    lan_client::client &client_;
    upgrade_standing before_;

    // What was heard and is not dealt with yet.
    std::deque<std::string> requests_; // for pieces
    std::optional<std::string> refusal_;
    bool version_told_ = false;
    bool interrupted_ = false;

    bool started_ = false;
    bool link_lost_ = false;    // after the start
    std::uint64_t taken_ = 0;   // bytes of the image that the gateway has
    std::uint32_t repeats_ = 0; // requests since it took something new
    bool complete_ = false;     // it has all
    progress_bar installing_;
    std::optional<clock::time_point> installing_heard_;
};

} // namespace engr_app
