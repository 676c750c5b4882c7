#include "pcapng.h"

#include "lan_client/client.h"
#include "lan_client/discovery.h"

#include <arpa/inet.h>

#include <algorithm>
#include <ctime>
#include <optional>
#include <ostream>
#include <type_traits>
#include <variant>

#include <nlohmann/json.hpp>

namespace engr_session {
namespace {

using session::side;

// Addresses for documentation: they are nobody's.
constexpr const char *unknown_gateway = "192.0.2.1";
constexpr const char *unknown_app = "192.0.2.2";

constexpr uint32_t section_block = 0x0A0D0D0A;
constexpr uint32_t interface_block = 1;
constexpr uint32_t packet_block = 6;
constexpr uint16_t link_of_raw_ip = 101;

constexpr uint8_t protocol_tcp = 6;
constexpr uint8_t protocol_udp = 17;
constexpr uint8_t flag_fin = 0x01;
constexpr uint8_t flag_syn = 0x02;
constexpr uint8_t flag_push = 0x08;
constexpr uint8_t flag_ack = 0x10;
/** Most bytes of a stream in one packet: an IP packet has 65535 at most. */
constexpr std::size_t segment_bytes = 32 * 1024;

/** Appends a number in this machine's order, which the file tells. */
template <typename Number>
void put_native(std::string &bytes, Number number) {
    bytes.append(reinterpret_cast<const char *>(&number), sizeof number);
}

/** Appends a number in the order of the network. */
template <typename Number>
void put_network(std::string &bytes, Number number) {
    for (std::size_t shift = sizeof number * 8; shift > 0; shift -= 8) {
        bytes += static_cast<char>(static_cast<uint64_t>(number) >> (shift - 8));
    }
}

void write_block(std::ostream &out, uint32_t type, std::string body) {
    body.resize((body.size() + 3) / 4 * 4);
    const auto total = static_cast<uint32_t>(body.size() + 12);
    std::string block;
    put_native(block, type);
    put_native(block, total);
    block += body;
    put_native(block, total);
    out << block;
}

void put_option(std::string &body, uint16_t code, std::string_view value) {
    put_native(body, code);
    put_native(body, static_cast<uint16_t>(value.size()));
    body += value;
    body.resize((body.size() + 3) / 4 * 4);
}

/** The sum of the Internet protocols over words of 16 bits. */
uint16_t internet_checksum(std::string_view bytes) {
    uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        sum += i % 2 == 0 ? static_cast<uint32_t>(byte) << 8 : byte;
    }
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum);
}

/** The sum of TCP and UDP, which covers the addresses, too. */
uint16_t transport_checksum(uint8_t protocol, uint32_t from, uint32_t to, std::string_view packet) {
    std::string covered;
    put_network(covered, from);
    put_network(covered, to);
    put_network(covered, uint16_t{protocol});
    put_network(covered, static_cast<uint16_t>(packet.size()));
    covered += packet;
    return internet_checksum(covered);
}

void set_word(std::string &bytes, std::size_t at, uint16_t word) {
    bytes[at] = static_cast<char>(word >> 8);
    bytes[at + 1] = static_cast<char>(word & 0xFF);
}

std::optional<uint32_t> address_of(const std::string &text) {
    in_addr parsed{};
    return inet_pton(AF_INET, text.substr(0, text.find(':')).c_str(), &parsed) == 1
               ? std::optional(ntohl(parsed.s_addr))
               : std::nullopt;
}

std::string text_of(uint32_t address) {
    const in_addr in_system{htonl(address)};
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &in_system, text, sizeof text);
    return text;
}

uint16_t port_of(const std::string &peer, uint16_t otherwise) {
    const std::size_t colon = peer.find(':');
    const int port = colon == std::string::npos ? 0 : std::atoi(peer.c_str() + colon + 1);
    return port > 0 && port <= 0xFFFF ? static_cast<uint16_t>(port) : otherwise;
}

/** A time as in a header; the first of 1970 when it is not one. */
uint64_t microseconds_of(const std::string &started) {
    std::tm parsed{};
    int ms = 0;
    if (std::sscanf(started.c_str(), "%d-%d-%dT%d:%d:%d.%dZ", &parsed.tm_year, &parsed.tm_mon,
                    &parsed.tm_mday, &parsed.tm_hour, &parsed.tm_min, &parsed.tm_sec, &ms) != 7) {
        return 0;
    }
    parsed.tm_year -= 1900;
    parsed.tm_mon -= 1;
    return static_cast<uint64_t>(timegm(&parsed)) * 1'000'000 + static_cast<uint64_t>(ms) * 1000;
}

/** The gateway's address, as far as a header tells. */
std::string gateway_of(const session::header &start) {
    const auto options = nlohmann::json::parse(start.options, nullptr, false);
    if (start.recorded_by == side::gateway && options.is_object()) {
        const auto address = options.find("address");
        if (address != options.end() && address->is_string() &&
            address_of(address->get<std::string>())) {
            return address->get<std::string>();
        }
    }
    return unknown_gateway;
}

} // namespace

pcapng_writer::pcapng_writer(std::ostream &out, const session::header &start)
    : out_(out), recorded_by_(start.recorded_by), keys_(session::keys_of(start)),
      started_us_(microseconds_of(start.started)), own_gateway_(gateway_of(start)) {
    // One key for all of TCP, so that whoever opens the file needs no other.
    keys_.unactivated = keys_.local;
    constexpr uint16_t option_application = 4;
    constexpr uint32_t byte_order = 0x1A2B3C4D;
    std::string section;
    put_native(section, byte_order);
    put_native(section, uint16_t{1}); // version 1.0
    put_native(section, uint16_t{0});
    put_native(section, UINT64_MAX); // length: not told
    put_option(section, option_application, "engr_session, from " + start.program);
    put_option(section, 0, "");
    write_block(out_, section_block, section);
    std::string interface;
    put_native(interface, link_of_raw_ip);
    put_native(interface, uint16_t{0});
    put_native(interface, uint32_t{0}); // packets are whole
    write_block(out_, interface_block, interface);
}

void pcapng_writer::add(const session::event &what) {
    std::visit(
        [&](const auto &of) {
            using kind = std::decay_t<decltype(of)>;
            if constexpr (std::is_same_v<kind, session::connected>) {
                open(what.at_us, of.client, of.peer);
            } else if constexpr (std::is_same_v<kind, session::closed>) {
                close(what.at_us, of.client, of.by.value_or(side::gateway));
            } else if constexpr (std::is_same_v<kind, session::frame>) {
                put_stream(what.at_us, of.client, of.from, session::wire_bytes(of, keys_));
            } else if constexpr (std::is_same_v<kind, session::raw_bytes>) {
                put_stream(what.at_us, of.client, of.from, of.bytes);
            } else if constexpr (std::is_same_v<kind, session::datagram>) {
                put_datagram(what.at_us, of);
            }
        },
        what.what);
}

void pcapng_writer::open(uint64_t at_us, uint32_t client, const std::string &peer) {
    const bool at_gateway = recorded_by_ == side::gateway;
    const end_point known{address_of(peer).value_or(*address_of(unknown_app)),
                          port_of(peer, lan_client::gateway_port)};
    connection made{};
    if (at_gateway) {
        made.app = known;
        made.gateway = {*address_of(own_gateway_), lan_client::gateway_port};
    } else {
        // The dissector knows the protocol by its port, whatever port led to the gateway.
        made.app = {*address_of(unknown_app), next_port_++};
        made.gateway = {known.address, lan_client::gateway_port};
    }
    gateways_.insert(text_of(made.gateway.address));
    connection &added = connections_[client] = made;
    put_segment(at_us, added, side::app, flag_syn, "");
    put_segment(at_us, added, side::gateway, flag_syn | flag_ack, "");
    put_segment(at_us, added, side::app, flag_ack, "");
}

void pcapng_writer::close(uint64_t at_us, uint32_t client, side by) {
    const auto found = connections_.find(client);
    if (found != connections_.end()) {
        const side other = by == side::app ? side::gateway : side::app;
        put_segment(at_us, found->second, by, flag_fin | flag_ack, "");
        put_segment(at_us, found->second, other, flag_fin | flag_ack, "");
        put_segment(at_us, found->second, by, flag_ack, "");
        connections_.erase(found);
    }
}

void pcapng_writer::put_stream(uint64_t at_us, uint32_t client, side from, std::string_view bytes) {
    if (connections_.count(client) == 0) {
        open(at_us, client, ""); // its beginning was lost
    }
    connection &of = connections_[client];
    while (!bytes.empty()) {
        const std::string_view part = bytes.substr(0, segment_bytes);
        put_segment(at_us, of, from, flag_push | flag_ack, part);
        bytes.remove_prefix(part.size());
    }
}

void pcapng_writer::put_segment(uint64_t at_us, connection &of, side from, uint8_t flags,
                                std::string_view bytes) {
    constexpr uint8_t header_words = 5;
    constexpr std::size_t checksum_at = 16;
    const bool by_app = from == side::app;
    const end_point &source = by_app ? of.app : of.gateway;
    const end_point &target = by_app ? of.gateway : of.app;
    uint32_t &next = by_app ? of.next_of_app : of.next_of_gateway;
    const uint32_t expected = by_app ? of.next_of_gateway : of.next_of_app;
    std::string packet;
    put_network(packet, source.port);
    put_network(packet, target.port);
    put_network(packet, next);
    put_network(packet, (flags & flag_ack) != 0 ? expected : 0U);
    put_network(packet, static_cast<uint8_t>(header_words << 4));
    put_network(packet, flags);
    put_network(packet, uint16_t{UINT16_MAX}); // window
    put_network(packet, uint32_t{0});          // checksum, and no urgent data
    packet += bytes;
    set_word(packet, checksum_at,
             transport_checksum(protocol_tcp, source.address, target.address, packet));
    put_packet(at_us, protocol_tcp, source.address, target.address, packet);
    next += static_cast<uint32_t>(bytes.size()) + ((flags & (flag_syn | flag_fin)) != 0 ? 1U : 0U);
}

void pcapng_writer::put_datagram(uint64_t at_us, const session::datagram &of) {
    constexpr std::size_t checksum_at = 6;
    const uint32_t broadcast = 0xFFFFFFFF;
    const bool sent_by_recorder = of.from == recorded_by_;
    const uint32_t own = *address_of(recorded_by_ == side::gateway ? own_gateway_ : unknown_app);
    const uint32_t peer = address_of(of.peer).value_or(sent_by_recorder ? broadcast : own + 1);
    const uint32_t source = sent_by_recorder ? own : peer;
    const uint32_t target = sent_by_recorder                        ? peer
                            : of.port == lan_client::discovery_port ? broadcast
                                                                    : own;
    const std::string bytes = session::wire_bytes(of, keys_);
    std::string packet;
    put_network(packet, sent_by_recorder ? of.port : port_of(of.peer, of.port));
    put_network(packet, of.port);
    put_network(packet, static_cast<uint16_t>(bytes.size() + 8));
    put_network(packet, uint16_t{0});
    packet += bytes;
    set_word(packet, checksum_at, transport_checksum(protocol_udp, source, target, packet));
    put_packet(at_us, protocol_udp, source, target, packet);
}

void pcapng_writer::put_packet(uint64_t at_us, uint8_t protocol, uint32_t from, uint32_t to,
                               std::string_view payload) {
    constexpr uint16_t ip_header_bytes = 20;
    constexpr std::size_t checksum_at = 10;
    constexpr uint16_t do_not_fragment = 0x4000;
    constexpr uint8_t time_to_live = 64;
    std::string packet;
    put_network(packet, uint16_t{0x4500}); // version 4, header of 5 words
    put_network(packet, static_cast<uint16_t>(ip_header_bytes + payload.size()));
    put_network(packet, uint16_t{0});
    put_network(packet, do_not_fragment);
    put_network(packet, time_to_live);
    put_network(packet, protocol);
    put_network(packet, uint16_t{0});
    put_network(packet, from);
    put_network(packet, to);
    set_word(packet, checksum_at, internet_checksum(packet));
    packet += payload;
    const uint64_t time_us = started_us_ + at_us;
    std::string body;
    put_native(body, uint32_t{0}); // the interface
    put_native(body, static_cast<uint32_t>(time_us >> 32));
    put_native(body, static_cast<uint32_t>(time_us));
    put_native(body, static_cast<uint32_t>(packet.size()));
    put_native(body, static_cast<uint32_t>(packet.size()));
    body += packet;
    write_block(out_, packet_block, body);
    ++packets_;
}

} // namespace engr_session
