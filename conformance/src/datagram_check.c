/* Promises of datagrams. */
#include "kit.h"

enum { TEXT_SIZE = 32 };

void datagram_it_comes_with_its_sender(void) {
    const uint16_t port = kit->free_port();
    int32_t socket = kit_open_datagrams(port);
    conformance_peer_t *peer = kit->open_datagrams();
    char buffer[6];
    uint32_t address = 0;
    uint32_t expected_address = 0;
    uint16_t number = 0;
    uint16_t expected_number = 0;
    kit->endpoint(peer, &expected_address, &expected_number);
    kit->send_to(peer, kit->address, port, "configuration", 13);
    EXPECT(kit_select(socket, kit->bound_ms) == 1, "expected a datagram to be ready");
    EXPECT(kelo_hal_net_recvfrom(socket, buffer, sizeof buffer, &address, &number) == 6 &&
               memcmp(buffer, "config", 6) == 0,
           "expected what does not fit to be cut off");
    EXPECT(address == expected_address, "expected address %08x in host byte order, got %08x",
           (unsigned)expected_address, (unsigned)address);
    EXPECT(number == expected_number, "expected port %u, got %u", (unsigned)expected_number,
           (unsigned)number);
    kit->send_to(peer, kit->address, port, "x", 1);
    EXPECT(kelo_hal_net_recvfrom(socket, buffer, sizeof buffer, NULL, NULL) == 1,
           "expected the next datagram, and the rest of the last to be dropped");
    kit->close(peer);
    kit_close(&socket);
}

void datagram_broadcasts_travel_both_ways(void) {
    const uint16_t port = kit->free_port();
    int32_t socket = kit_open_datagrams(port);
    conformance_peer_t *peer = kit->open_datagrams();
    char buffer[TEXT_SIZE];
    uint32_t address;
    uint16_t number = 0;
    kit->endpoint(peer, &address, &number);
    kit->send_to(peer, KELO_ADDRESS_BROADCAST, port, "who", 3);
    EXPECT(kit_select(socket, kit->bound_ms) == 1, "expected a broadcast to come");
    EXPECT(kelo_hal_net_recvfrom(socket, buffer, sizeof buffer, NULL, NULL) == 3,
           "expected a broadcast to come");
    int32_t sender = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
    EXPECT(kelo_hal_net_set_boardcast(sender) == 0, "expected set_boardcast to return 0");
    const uint32_t targets[] = {address, KELO_ADDRESS_BROADCAST};
    for (int i = 0; i < 2; ++i) {
        uint32_t from;
        uint16_t from_port;
        const int32_t sent = kelo_hal_net_send_to(sender, "found", 5, targets[i], number);
        EXPECT(sent == 5, "expected 5 bytes to be sent, code %d", (int)kelo_hal_net_get_errno());
        EXPECT(kit->receive_from(peer, buffer, sizeof buffer, kit->bound_ms, &from, &from_port) ==
                       5 &&
                   memcmp(buffer, "found", 5) == 0,
               i == 0 ? "expected a datagram to arrive" : "expected a broadcast to arrive");
    }
    kit_close(&sender);
    kit->close(peer);
    kit_close(&socket);
}

void datagram_empty_ones_are_dropped(void) {
    const uint16_t port = kit->free_port();
    int32_t socket = kit_open_datagrams(port);
    conformance_peer_t *peer = kit->open_datagrams();
    char buffer[TEXT_SIZE];
    kit->send_to(peer, kit->address, port, "", 0);
    kit->send_to(peer, kit->address, port, "", 0);
    kit->send_to(peer, kit->address, port, "last", 4);
    EXPECT(kelo_hal_net_recvfrom(socket, buffer, sizeof buffer, NULL, NULL) == 4,
           "expected the datagram that is not empty");
    kit->send_to(peer, kit->address, port, "", 0);
    EXPECT(kelo_hal_net_set_block(socket, false) == 0, "expected set_block to return 0");
    EXPECT(kelo_hal_net_recvfrom(socket, buffer, sizeof buffer, NULL, NULL) < 0,
           "expected an empty datagram to be none");
    EXPECT(kelo_hal_net_get_errno() == KELO_ERR_WOULD_BLOCK,
           "expected KELO_ERR_WOULD_BLOCK, not %d", (int)kelo_hal_net_get_errno());
    kit->close(peer);
    kit_close(&socket);
}

void datagram_a_bound_address_is_the_sender(void) {
    conformance_peer_t *peer = kit->open_datagrams();
    int32_t socket = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
    char buffer[TEXT_SIZE];
    uint32_t address;
    uint32_t from = 0;
    uint16_t number = 0;
    uint16_t from_port = 0;
    kit->endpoint(peer, &address, &number);
    EXPECT(kelo_hal_net_socket_bind(socket, kit->address_text) == 0,
           "expected %s to be bound, code %d", kit->address_text, (int)kelo_hal_net_get_errno());
    EXPECT(kelo_hal_net_send_to(socket, "x", 1, address, number) == 1,
           "expected a byte to be sent");
    EXPECT(kit->receive_from(peer, buffer, sizeof buffer, kit->bound_ms, &from, &from_port) == 1,
           "expected a datagram to arrive");
    EXPECT(from == kit->address, "expected the bound address %08x as sender, got %08x",
           (unsigned)kit->address, (unsigned)from);
    kit_close(&socket);
    kit->close(peer);
}
