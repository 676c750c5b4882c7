// Bounds on everything that the other side decides, so that a hostile gateway cannot exhaust an
// app.
#pragma once

#include <cstddef>

namespace lan_client {

/** Most devices of a gateway: twice as many as a Zigbee network, with 16 bits, has addresses. */
inline constexpr std::size_t max_devices = 131072;

/**
 * Longest frame that is taken from a gateway, in bytes; one that claims more is noise. A list of
 * max_devices devices with ids and product ids of 16 characters has 6.6 MiB.
 */
inline constexpr std::size_t max_received_frame_bytes = 8 * 1024 * 1024;

/** Longest transfer in segments that is put together, in bytes. */
inline constexpr std::size_t max_transfer_bytes = 64 * 1024 * 1024;

/** Most segments of a transfer. A gateway puts 1024 bytes into each but the last. */
inline constexpr std::size_t max_transfer_segments = max_transfer_bytes / 1024;

/**
 * Most bytes that requests under way may hold: what the gateway has not taken yet, and what may
 * have to be repeated with another key. Room for four requests of the greatest length.
 */
inline constexpr std::size_t max_request_bytes_under_way = 8 * 1024 * 1024;

/**
 * Frames that are dealt with before timers and signals get their turn, so that a flood of frames
 * holds up neither a time-out nor Ctrl-C.
 */
inline constexpr std::size_t max_frames_at_once = 64;

/** Longest discovery datagram that is read, in bytes: gateways stay below one Ethernet frame. */
inline constexpr std::size_t max_discovery_bytes = 1472;

/** Most values of one JSON text. A list of devices has fewer than four for each. */
inline constexpr std::size_t max_json_values = 4 * max_devices;

/** Most reports, and most bytes of them, that are kept for whoever waits for one of them. */
inline constexpr std::size_t max_kept_reports = 4096;
inline constexpr std::size_t max_kept_report_bytes = 1024 * 1024;

/** Most gateways that one discovery keeps, and most that it accepts at one address. */
inline constexpr std::size_t max_discovered_gateways = 4096;
inline constexpr std::size_t max_discovered_at_one_address = 16;

} // namespace lan_client
