/* What the actors of a story share while it is told: the world, the apps, and what the invariants
 * have to know. */
#pragma once

#include "engr_lan_agent.h"
#include "lan_client/crypto.h"
#include "lan_client/frame.h"
#include "sim/world.h"
#include "story.h"

#include <deque>
#include <map>
#include <optional>
#include <set>

namespace worlds {

constexpr uint16_t lan_port = 6668;
constexpr uint16_t config_port = 6669;
/** Longest time to an answer, far below that after which a silent client is closed. */
constexpr uint64_t answer_limit_ms = 10'000;
/** The same beside hostile apps: one that sends half a frame keeps the server task for 30 s. */
constexpr uint64_t answer_among_hostile_ms = 300'000;

/** A connection of an honest app: what it asked and what came. */
struct link {
    sim::peer peer;
    std::string buffer;                     /**< received, not a whole frame yet */
    std::map<uint32_t, uint32_t> open = {}; /**< frame types of unanswered requests, by number */
    uint32_t last_number = 0;
    std::optional<uint64_t> known_ms = {}; /**< first answer: the gateway counts it as a client */
    std::optional<uint64_t> ended_ms = {};
    std::set<uint32_t> reports = {}; /**< numbers of those that have come */
};

/** A report that a thread of the gateway made; its number is in its text. */
struct made_report {
    std::string by;
    uint64_t called_ms;
    uint64_t returned_ms = 0;
    bool accepted = false; /**< the agent took it */
};

/** A transfer of an image, as the upgrade service sees it. */
struct transfer {
    stage *at;
    uint32_t outcomes = 0;
    bool may_have_none = false; /**< it was replaced, refused, or ended by a version report */
};

/** An actor while its story is told. */
struct actor_run {
    const actor &as;
    std::deque<link> links = {};      /**< of an honest app; the last one is in use */
    std::deque<sim::peer> peers = {}; /**< of a hostile app */
    bool done = false;                /**< its steps are over */
};

class stage {
  public:
    /** @param[out] log  lines up to the first problem */
    stage(sim::world &in, std::string &log) : world(in), log_(log) {}

    /** The transfers so far, but for one, may end without an outcome. */
    void excuse_transfers(const transfer *but = nullptr);
    /** Reports a broken invariant, once; the log so far goes with the first one. */
    void problem(const std::string &text);
    /** The connection in use, made anew when need be; null when the gateway refuses. */
    link *connected(actor_run &by);
    /** Sends a request. Returns its number. */
    uint32_t send(link &over, uint32_t fr_type, std::string_view payload, bool encrypted);
    /** Takes what comes for so long, or until the request of a number is answered. */
    void listen(actor_run &by, uint64_t limit_ms, std::optional<uint32_t> until_answered = {});
    /** Sends a request and waits for the answer. */
    void ask(actor_run &by, uint32_t fr_type, std::string_view payload, bool encrypted);

    sim::world &world;
    bool has_hostile_app = false;
    bool has_misfortune = false; /**< a fault was set: answers and reports may be missing */
    bool is_over = false;        /**< honest apps listen until then */
    std::deque<made_report> reports;
    std::deque<transfer> transfers;
    lan_fw_info_t offered = {};
    bool had_upgrade = false; /**< at the last check */
    size_t lines_checked = 0; /**< of the log */
    uint32_t service_ms = 10; /**< how long the upgrade service takes for a piece or an image */

  private:
    std::string &log_;
    std::set<std::string> problems_;
    void take_frame(const actor &by, link &from, const lan_client::frame &frame);
    void take_report(const actor &by, link &from, const lan_client::frame &frame);
};

} // namespace worlds
