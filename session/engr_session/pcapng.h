// Writing what a session's events put on the wire as a capture file for Wireshark.
#pragma once

#include "session/event.h"
#include "session/wire.h"

#include <cstdint>
#include <iosfwd>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace engr_session {

/**
 * Writes packets of IP: connections as TCP with a handshake and sequence numbers, datagrams as UDP.
 * A session does not know all addresses; what is missing gets one of 192.0.2.0/24.
 */
class pcapng_writer {
  public:
    /** Begins the file. */
    pcapng_writer(std::ostream &out, const session::header &start);

    /** Writes the packets of an event; those that are none of the wire have none. */
    void add(const session::event &what);

    /** Addresses of gateways in the packets of connections, dotted decimal. */
    [[nodiscard]] const std::set<std::string> &gateways() const { return gateways_; }
    [[nodiscard]] uint64_t packets() const { return packets_; }

  private:
    struct end_point {
        uint32_t address; /**< in host order */
        uint16_t port;
    };
    struct connection {
        end_point app;
        end_point gateway;
        uint32_t next_of_app = 0; /**< sequence numbers */
        uint32_t next_of_gateway = 0;
    };

    void open(uint64_t at_us, uint32_t client, const std::string &peer);
    void close(uint64_t at_us, uint32_t client, session::side by);
    void put_stream(uint64_t at_us, uint32_t client, session::side from, std::string_view bytes);
    void put_segment(uint64_t at_us, connection &of, session::side from, uint8_t flags,
                     std::string_view bytes);
    void put_datagram(uint64_t at_us, const session::datagram &of);
    void put_packet(uint64_t at_us, uint8_t protocol, uint32_t from, uint32_t to,
                    std::string_view payload);

    std::ostream &out_;
    session::side recorded_by_;
    session::key_ring keys_;
    uint64_t started_us_;     /**< since 1970 */
    std::string own_gateway_; /**< of a recording gateway: its address, or what stands for it */
    std::set<std::string> gateways_;
    uint16_t next_port_ = 49152;
    std::map<uint32_t, connection> connections_;
    uint64_t packets_ = 0;
};

} // namespace engr_session
