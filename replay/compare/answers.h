// What a gateway does that others notice: frames to apps, closed connections, datagrams, answers to
// its operator.
#pragma once

#include "compare/recording.h"
#include "session/event.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace replay {

enum class answer_kind : uint8_t {
    frame,    /**< to an app */
    bytes,    /**< to an app, but no frame */
    closed,   /**< the gateway closed a connection */
    datagram, /**< sent by the gateway */
    control,  /**< to a line of the operator */
    ended     /**< gateway and agent ended by themselves, as by a crash */
};

/** A report so shortly after an app connected, or before it left, may or may not reach it: the
 * server accepts connections on another thread than reports come from. */
constexpr uint64_t edge_us = 100'000;

/** A gateway announces itself every 5 s. What was true for less than two periods may have fallen
 * between two announcements in another play, one of which came late. */
constexpr uint64_t passing_us = 10'000'000;

/** One thing that the gateway did. */
struct answer {
    answer_kind kind = answer_kind::frame;
    uint64_t at_us = 0;                  /**< since the start of the session */
    uint32_t client = 0;                 /**< whose connection, counted from 1; 0: nobody's */
    uint16_t port = 0;                   /**< of a datagram */
    session::frame_content content = {}; /**< of a frame, and of a datagram that is one */
    std::string text = {};               /**< all else that it says */
    std::string about = {};  /**< of a report: the id of what it is about, which may be empty; of an
                                answer to the operator: his line */
    bool is_at_edge = false; /**< a report so near to the connecting or leaving of its app that the
                                machine decides whether it gets there */
    bool is_beside_operator = false; /**< a report while a line of the operator was carried out,
                                        whose own report may come before or after it */
    bool is_brief = false;           /**< an announcement of what was not announced for longer than
                                        passing_us; see there */
    bool request_has_other_key =
        false;             /**< a reply: its request was under another key than the gateway's,
                        which may come out of its decryption as if it were sound */
    std::size_t event = 0; /**< place among the events of its session */
};

/** Whether it is a frame that does not belong to a request of its app. */
[[nodiscard]] bool is_report(const answer &of);

/** Whether two answers say the same, whenever that is. For what reason the gateway refuses a
 * request under another key is chance: one in 256 looks sound until it is read as JSON, and a play
 * has another key than the recorded gateway had. */
[[nodiscard]] bool say_the_same(const answer &one, const answer &other);

/** The answer that an event is; none when it is none, or one that is not compared. */
[[nodiscard]] std::optional<answer> answer_in(const session::event &of);

/** All answers of a session that are compared, in its order. */
[[nodiscard]] std::vector<answer> answers_of(const recording &from);

/** What it is, in printable ASCII: "7 FRM_DEV_LIST", "connection". */
[[nodiscard]] std::string subject_of(const answer &of);
/** What it says: "ret 0 {...}", "closed". */
[[nodiscard]] std::string statement_of(const answer &of);
/** Both in one line. */
[[nodiscard]] std::string words_of(const answer &of);

} // namespace replay
