// An upgrade from a file, as one request of a handle.
#pragma once

#include "engr_lan_client.h"
#include "lan_client/crypto.h"
#include "lan_client/event_loop.h"
#include "lan_client/image_upgrade.h"

#include <cstdint>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

namespace lan_client_c {

/** Used on the loop's thread, but for its making. */
class upgrade_run : public std::enable_shared_from_this<upgrade_run> {
  public:
    /**
     * Opens the file; `is_usable` says whether that worked.
     *
     * @param again  upgrade even when the version is installed already
     */
    upgrade_run(const std::string &path, std::string version, std::string device_id, bool again);

    /** @return whether the file can be read, is not empty and not larger than gateways take */
    [[nodiscard]] bool is_usable() const { return order_.image_bytes > 0; }

    /** Begins, as the request `id`. */
    void start(engr_client &client, uint32_t id);

    [[nodiscard]] bool has_ended() const { return ended_; }

    /**
     * Takes a report.
     *
     * @return whether it was a request for a piece
     */
    bool take(const lan_client::report &told);
    void take(const lan_client::link_change &change);

  private:
    void read_more();
    bool append(std::string &to, uint64_t offset, std::size_t count);
    void ask(bool announce);
    void take_status(const lan_client::upgrade_answer &got, bool announced);
    void carry_out(const lan_client::upgrade_answer &before);
    void take_outcome(const lan_client::upgrade_outcome &outcome);
    void end_unanswered(const lan_client::answer &last);
    void end(engr_client_error why, std::string text, const std::string &version = "",
             bool upgraded = false);
    void add_answer(engr_client_error why, std::string text, uint32_t ret, std::string payload);

    std::ifstream file_;
    lan_client::upgrade_order order_;
    bool again_;
    engr_client *client_ = nullptr;
    uint32_t id_ = 0;
    bool ended_ = false;
    bool unreadable_ = false; // the image, in the middle
    std::string version_before_;

    // While the file is read for its sum:
    std::optional<lan_client::timer> next_block_;
    lan_client::md5_sum sum_;
    uint64_t summed_bytes_ = 0;

    std::unique_ptr<lan_client::image_upgrade> upgrade_;
};

} // namespace lan_client_c
