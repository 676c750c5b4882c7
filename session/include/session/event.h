// What a session file holds: how it began, and one record for each thing that happened.
#pragma once

#include "lan_client/frame.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace session {

/** The two ends of a conversation. */
enum class side : uint8_t { app, gateway };

/** How the payload of a frame travels. */
enum class coding : uint8_t {
    plain,
    local,    /**< under the gateway's local key, for which the session's key stands */
    built_in, /**< under the built-in key of this channel or port */
    unknown   /**< under a key that the recorder did not have: the payload is as on the wire */
};

/** The first line. JSON texts are empty where there is none. */
struct header {
    std::string program; /**< that recorded it */
    std::string version;
    std::string started; /**< UTC, as 2026-01-31T12:00:00.123Z */
    side recorded_by = side::gateway;
    bool has_secrets = false;
    std::string key; /**< 16 characters; stands for every local key unless there are secrets */
    std::map<std::string, std::string> seeds; /**< key1 to key3: fingerprint of the built-in key */
    std::string options;                      /**< JSON object: what the program was started with */
    std::string site;     /**< JSON object: the gateway at the start, as a site file */
    std::string scenario; /**< JSON object: a scenario file */
};

/** An app's connection was accepted or made. */
struct connected {
    uint32_t client = 0; /**< counts the connections of a session from 1 */
    std::string peer;    /**< ADDRESS:PORT of the other side, as seen from the recorder */
};

/** A connection ended. */
struct closed {
    uint32_t client = 0;
    std::optional<side> by; /**< not known when it broke */
};

/** What a frame says, in whichever direction. */
struct frame_content {
    uint32_t number = 0;
    uint32_t type = 0;
    std::optional<uint32_t> ret; /**< of the gateway's frames only */
    std::optional<lan_client::segment_position> segment;
    coding coded = coding::plain;
    std::string payload; /**< decrypted, unless its coding is unknown */
    bool crc_matches = true;
};

/** A whole frame on a connection; `at` is when its last byte came or went. */
struct frame {
    uint32_t client = 0;
    side from = side::app;
    std::optional<uint64_t> began_us; /**< when its first byte came, if earlier */
    frame_content content;
    uint32_t first_bytes = 0; /**< of an app's frame that came in pieces: those of the first piece;
                                 a gateway drops a frame whose first piece is short */
};

/** Bytes of a connection that are no frame, or only half of one. */
struct raw_bytes {
    uint32_t client = 0;
    side from = side::app;
    std::optional<uint64_t> began_us;
    std::string bytes;
};

/** A datagram: a frame, or bytes that are none. */
struct datagram {
    side from = side::gateway;
    uint16_t port = 0; /**< to which it was sent */
    std::string peer;  /**< address to which the recorder sent it, or from which it got it */
    std::variant<frame_content, std::string> content;
};

/** A call of the agent into a service or callback of the gateway. */
struct call {
    std::string name;
    std::string arguments; /**< JSON object */
    std::string result;    /**< JSON */
};

/** A line of the control client, and its answer. */
struct control {
    std::optional<uint64_t> began_us; /**< when the line came, if before its answer: what it
                                           brought about lies between */
    std::vector<std::string> line;    /**< verb and arguments */
    std::string answer;               /**< JSON object */
};

/** A line of the log. */
struct log_line {
    int level = 0;
    std::string text;
};

/** A sentence about what an app did or what happened. */
struct activity {
    std::string text;
};

/** Happenings that are missing here, because they came faster than they could be written. */
struct lost {
    uint64_t events = 0;
};

/** The recorder ended in order; nothing follows. */
struct ended {};

using happening = std::variant<connected, closed, frame, raw_bytes, datagram, call, control,
                               log_line, activity, lost, ended>;

/** One line after the first. */
struct event {
    uint64_t at_us = 0; /**< since the start; never less than that of the event before */
    happening what;
};

/** The connection that an event belongs to; 0: none. */
[[nodiscard]] uint32_t client_of(const event &what);

/** How a payload travels unless an event says otherwise. */
[[nodiscard]] coding usual_coding(side from, const frame_content &content);
/** The same for datagrams. */
[[nodiscard]] coding usual_datagram_coding(const frame_content &content);

/** "FRM_DEV_LIST", or "type 77"; datagrams have names of their own. */
[[nodiscard]] std::string type_name(uint32_t type);
[[nodiscard]] std::string datagram_type_name(uint32_t type);

/** "app" or "gateway". */
[[nodiscard]] const char *side_name(side of);

} // namespace session
