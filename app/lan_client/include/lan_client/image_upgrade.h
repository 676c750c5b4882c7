// An upgrade from its announcement to its outcome.
#pragma once

#include "lan_client/client.h"
#include "lan_client/image_sender.h"
#include "lan_client/upgrade_status.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace lan_client {

/** Sees every answer to what an upgrade asks; may be absent. */
using answer_observer = std::function<void(const answer &)>;

/** What a gateway says of an upgrade before it starts. */
struct upgrade_answer {
    /** Nothing when the gateway did not answer, refused, or said something else: see `last`. */
    std::optional<upgrade_status> status;
    std::string gateway_id;      /**< of the gateway itself; empty: it did not say */
    bool unknown_device = false; /**< the gateway has no such device; then there is no status */
    answer last;                 /**< that came last */
};

struct upgrade_question {
    upgrade_order order;
    bool announce = false;     /**< the image, unless an upgrade is under way; else 0 bytes */
    bool check_device = false; /**< see whether there is such a device, when its version is empty */
};

/**
 * Asks whether an upgrade is under way and which version is installed. An announcement for a device
 * would change an upgrade under way, so the gateway's own status is asked for first; while that is
 * upgrading anything, the version of a device stays empty. Each question withdraws what any app has
 * announced and not started.
 *
 * @param to    must exist until the answer; each of the requests takes its request_timeout at most
 * @param done  called once, unless the client is destroyed before
 */
void ask_upgrade_status(client &to, upgrade_question question, answer_observer seen,
                        std::function<void(const upgrade_answer &)> done);

enum class upgrade_end {
    installed,     /**< the version of the order is installed */
    not_installed, /**< the gateway has the whole image, but another version is installed */
    gave_up,       /**< the gateway has not asked for the rest of the image, twice */
    disconnected,  /**< the same, but for the last time the connection was lost */
    unknown,       /**< the gateway can't be asked, or is busy for too long */
    refused,       /**< the gateway refused to begin, or did not answer: see `last` */
    stalled,       /**< the gateway has not asked for the next piece in time, but says that it is
                      upgrading; only the end of the connection ends that */
    broken,        /**< a request can't follow, or the image can't be read: see `fault`; as above */
};

struct upgrade_outcome {
    upgrade_end end = upgrade_end::unknown;
    std::optional<upgrade_status> status; /**< in the end, where the gateway told it */
    answer last;                          /**< that refused, or did not come */
    std::string fault;                    /**< to be read after "the gateway " */
};

enum class upgrade_step {
    starting,     /**< for the second time: the gateway gave up, perhaps because another app left,
                     or the connection was lost */
    transferring, /**< the gateway has accepted, and asks for pieces */
    settling,     /**< nothing more is sent; what is installed is asked for */
};

/**
 * Starts an image that has been announced, answers the requests for its pieces, and asks how it
 * ended, since no gateway tells. An upgrade that the gateway gives up before it has the whole image
 * is started once more: the end of any app's connection ends it, also of this one, if the client
 * reconnects.
 *
 * Used on the loop's thread. To leave early, close the client, which ends the upgrade on the
 * gateway; destroying this does not.
 */
class image_upgrade {
  public:
    using clock = std::chrono::steady_clock;

    struct callbacks {
        std::function<void(upgrade_step)> on_step;
        std::function<void()> on_progress; /**< one of the questions below has another answer */
        answer_observer on_answer;
        std::function<void(const upgrade_outcome &)> on_end; /**< called once; may destroy this */
    };

    /**
     * @param to           must exist as long as this; its reports and changes are handed to this
     * @param answer_time  that the gateway may take for an answer; other waits are multiples
     * @param read         gives bytes of the image
     */
    image_upgrade(event_loop &loop, client &to, upgrade_order order,
                  std::chrono::milliseconds answer_time, image_sender::source read,
                  callbacks events);
    ~image_upgrade();
    image_upgrade(const image_upgrade &) = delete;
    image_upgrade &operator=(const image_upgrade &) = delete;

    /** @param before  with a status, of the announcement */
    void start(const upgrade_answer &before);

    /**
     * Takes a report of the client.
     *
     * @return whether it was a request for a piece, which nobody else need see
     */
    bool take(const report &told);

    /** Takes a change of the client's connection. */
    void take(const link_change &change);

    [[nodiscard]] upgrade_step step() const;

    /** @return bytes from the beginning of the image that the gateway has */
    [[nodiscard]] uint64_t taken_bytes() const;

    /** @return whether the gateway has the whole image */
    [[nodiscard]] bool has_image() const;

    /** @return percents of the installation, once the gateway reports them */
    [[nodiscard]] std::optional<uint64_t> installed_percent() const;

    /** @return whether the connection was lost after the start */
    [[nodiscard]] bool is_link_lost() const;

    /** @return since when there is no progress, and for how long that is borne */
    [[nodiscard]] clock::time_point last_progress() const;
    [[nodiscard]] std::chrono::milliseconds patience() const;

  private:
    struct state;
    std::shared_ptr<state> state_;
};

} // namespace lan_client
