/* Promises of descriptors, select, receives, accepts and options. */
#include "kit.h"

enum { SET_TIMES = 2, WATCHED_LEAST = 11 };

static void set_of(kelo_fd_set_t *set, const int32_t *numbers, size_t count) {
    kelo_hal_net_fd_zero(set);
    for (size_t i = 0; i < count; ++i) {
        kelo_hal_net_fd_set(numbers[i], set);
    }
}

void socket_sets_hold_each_descriptor_once(void) {
    const int32_t numbers[] = {7, 7, -1};
    kelo_fd_set_t set;
    set_of(&set, numbers, 3);
    EXPECT(set.count == 1, "expected 7, 7 and -1 to make one member, not %u", (unsigned)set.count);
    EXPECT(kelo_hal_net_fd_isset(7, &set) == 1, "expected 7 to be in the set");
    EXPECT(kelo_hal_net_fd_isset(-1, &set) == 0, "expected -1 not to be in the set");
    for (int32_t number = 100; number < 100 + SET_TIMES * KELO_FD_SET_CAPACITY; ++number) {
        kelo_hal_net_fd_set(number, &set);
    }
    EXPECT(set.count == KELO_FD_SET_CAPACITY, "expected a set to hold %d", KELO_FD_SET_CAPACITY);
}

void socket_a_number_never_comes_back(void) {
    int32_t *numbers = kit->memory;
    for (uint32_t i = 0; i < kit->sockets; ++i) {
        int32_t socket = kelo_hal_net_socket_create(i % 2 == 0 ? KELO_SOCKET_TCP : KELO_SOCKET_UDP);
        EXPECT(socket > 0 && socket < INT32_MAX, "expected a number from 1 to 2147483646, not %d",
               (int)socket);
        for (uint32_t j = 0; j < i; ++j) {
            EXPECT(numbers[j] != socket, "expected number %d not to come back", (int)socket);
        }
        numbers[i] = socket;
        kit_close(&socket);
    }
}

void socket_an_old_number_fails_everywhere(void) {
    int32_t old = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
    const int32_t number = old;
    kit_close(&old);
    char byte = 0;
    const int32_t results[] = {
        kelo_hal_net_close(number),
        kelo_hal_net_shutdown(number),
        kelo_hal_net_set_bufsize(number, 4096, KELO_BUFFER_SEND),
        kelo_hal_net_set_reuse(number),
        kelo_hal_net_set_cloexec(number),
        kelo_hal_net_set_boardcast(number),
        kelo_hal_net_set_block(number, false),
        kelo_hal_net_set_keepalive(number, true, 30, 5, 1),
        kelo_hal_net_bind(number, KELO_ADDRESS_ANY, kit->free_port()),
        kelo_hal_net_socket_bind(number, kit->address_text),
        kelo_hal_net_listen(number, 1),
        kelo_hal_net_accept(number, NULL, NULL),
        kelo_hal_net_recv(number, &byte, 1),
        kelo_hal_net_recvfrom(number, &byte, 1, NULL, NULL),
        kelo_hal_net_send_to(number, &byte, 1, kit->address, 9),
        kit_select(number, 1),
    };
    for (size_t i = 0; i < sizeof results / sizeof results[0]; ++i) {
        EXPECT(results[i] < 0, "expected call %u of a closed socket to fail, it returned %d",
               (unsigned)i, (int)results[i]);
    }
    EXPECT(kelo_hal_net_send(number, &byte, 1) != 1, "expected a send on a closed socket to fail");
    EXPECT(kelo_hal_net_get_errno() == KELO_ERR_BAD_SOCKET, "expected KELO_ERR_BAD_SOCKET, not %d",
           (int)kelo_hal_net_get_errno());
}

void socket_select_leaves_the_ready_ones(void) {
    kit_connection_t first;
    kit_connection_t second;
    int32_t idle[WATCHED_LEAST - 3];
    int32_t numbers[WATCHED_LEAST];
    kelo_fd_set_t readable;
    kelo_fd_set_t exceptional;
    kelo_fd_set_t writable;
    kit_connect(&first, kit->send_buffer_bytes);
    kit_connect(&second, kit->send_buffer_bytes);
    int32_t top = second.socket;
    for (size_t i = 0; i < WATCHED_LEAST - 3; ++i) {
        idle[i] = kit_open_datagrams(kit->free_port());
        top = idle[i] > top ? idle[i] : top;
        numbers[i] = idle[i];
    }
    numbers[WATCHED_LEAST - 3] = first.listening;
    numbers[WATCHED_LEAST - 2] = first.socket;
    numbers[WATCHED_LEAST - 1] = second.socket;
    top = first.socket > top ? first.socket : top;
    EXPECT(kit_select(first.socket, 1) == 0, "expected nothing to be ready before data");
    kit->send(second.peer, "x", 1);
    set_of(&readable, numbers, WATCHED_LEAST);
    exceptional = readable;
    EXPECT(kelo_hal_net_select(top + 1, &readable, NULL, &exceptional, kit->bound_ms) == 1,
           "expected one of %d to be ready", WATCHED_LEAST);
    EXPECT(readable.count == 1 && kelo_hal_net_fd_isset(second.socket, &readable) == 1 &&
               exceptional.count == 0,
           "expected the ready one to be left in its set");
    set_of(&writable, &first.socket, 1);
    EXPECT(kelo_hal_net_select(top + 1, NULL, &writable, NULL, kit->bound_ms) == 1 &&
               kelo_hal_net_fd_isset(first.socket, &writable) == 1,
           "expected a connection with room to be writable");
    set_of(&readable, &second.socket, 1);
    EXPECT(kelo_hal_net_select(second.socket, &readable, NULL, NULL, 1) == 0,
           "expected descriptors from the count up not to be watched");
    kit->close(first.peer);
    first.peer = NULL;
    EXPECT(kit_select(first.socket, kit->bound_ms) == 1,
           "expected the end of a stream to be ready");
    for (size_t i = 0; i < WATCHED_LEAST - 3; ++i) {
        kit_close(&idle[i]);
    }
    kit_disconnect(&first);
    kit_disconnect(&second);
}

void socket_select_with_an_unknown_one_leaves_the_sets(void) {
    kit_connection_t one;
    kelo_fd_set_t set;
    kit_connect(&one, kit->send_buffer_bytes);
    const int32_t numbers[] = {one.listening, one.socket};
    const int32_t top = (one.socket > one.listening ? one.socket : one.listening) + 1;
    set_of(&set, numbers, 2);
    kit_close(&one.socket);
    EXPECT(kelo_hal_net_select(top, &set, NULL, NULL, kit->bound_ms) < 0,
           "expected select to fail with a closed socket");
    EXPECT(kelo_hal_net_get_errno() == KELO_ERR_BAD_SOCKET, "expected KELO_ERR_BAD_SOCKET, not %d",
           (int)kelo_hal_net_get_errno());
    EXPECT(set.count == 2, "expected a failed select to leave the set");
    EXPECT(kit_select(NO_SOCKET, 1) < 0, "expected select to fail with an unknown number");
    kit_disconnect(&one);
}

void socket_a_receive_tells_waiting_from_the_end(void) {
    kit_connection_t one;
    char buffer[16];
    kit_connect(&one, kit->send_buffer_bytes);
    EXPECT(kelo_hal_net_set_block(one.socket, false) == 0, "expected set_block to return 0");
    EXPECT(kelo_hal_net_recv(one.socket, buffer, sizeof buffer) < 0,
           "expected nothing to be there");
    EXPECT(kelo_hal_net_get_errno() == KELO_ERR_WOULD_BLOCK, "expected KELO_ERR_WOULD_BLOCK");
    kit->send(one.peer, "last", 4);
    kit->close(one.peer);
    one.peer = NULL;
    EXPECT(kelo_hal_net_set_block(one.socket, true) == 0, "expected set_block to return 0");
    EXPECT(kelo_hal_net_recv(one.socket, buffer, sizeof buffer) == 4, "expected the 4 bytes sent");
    EXPECT(kelo_hal_net_recv(one.socket, buffer, sizeof buffer) == 0, "expected the end to be 0");
    EXPECT(kelo_hal_net_get_errno() == KELO_ERR_PEER_CLOSED,
           "expected KELO_ERR_PEER_CLOSED at the end of the stream, not %d",
           (int)kelo_hal_net_get_errno());
    kit_disconnect(&one);
}

void socket_a_reset_connection_fails_for_good(void) {
    kit_connection_t one;
    char byte;
    kit_connect(&one, kit->send_buffer_bytes);
    kit->reset(one.peer);
    one.peer = NULL;
    EXPECT(kelo_hal_net_recv(one.socket, &byte, 1) <= 0, "expected no byte after a reset");
    const int32_t code = kelo_hal_net_get_errno();
    EXPECT(code < 0 && code != KELO_ERR_INTERRUPTED && code != KELO_ERR_WOULD_BLOCK &&
               code != KELO_ERR_TRY_AGAIN,
           "expected a code that is not transient, got %d", (int)code);
    kit_disconnect(&one);
}

static void fail_otherwise(void *argument) {
    kit_connection_t *one = argument;
    char byte;
    EXPECT(kelo_hal_net_get_errno() == 0, "expected no code on a thread without a failure");
    kelo_hal_net_set_block(one->socket, false);
    EXPECT(kelo_hal_net_recv(one->socket, &byte, 1) < 0, "expected nothing to be there");
    EXPECT(kelo_hal_net_get_errno() == KELO_ERR_WOULD_BLOCK, "expected KELO_ERR_WOULD_BLOCK");
}

void socket_the_error_code_is_the_threads_own(void) {
    kit_connection_t one;
    kit_thread_t thread;
    char byte;
    kit_connect(&one, kit->send_buffer_bytes);
    EXPECT(kelo_hal_net_recv(NO_SOCKET, &byte, 1) < 0, "expected an unknown number to fail");
    kit_start(&thread, fail_otherwise, &one);
    kit_join(&thread);
    EXPECT(kelo_hal_net_get_errno() == KELO_ERR_BAD_SOCKET,
           "expected another thread's failure to leave the code, it is %d",
           (int)kelo_hal_net_get_errno());
    kit_disconnect(&one);
}

void socket_the_error_code_outlives_a_success(void) {
    kit_connection_t one;
    char byte;
    kit_connect(&one, kit->send_buffer_bytes);
    kit->send(one.peer, "x", 1);
    EXPECT(kelo_hal_net_close(NO_SOCKET) < 0, "expected an unknown number to fail");
    EXPECT(kit_select(one.socket, kit->bound_ms) == 1, "expected a byte to be ready");
    EXPECT(kit_select(one.listening, 0) == 0, "expected no connection to wait");
    EXPECT(kelo_hal_net_recv(one.socket, &byte, 1) == 1, "expected a byte");
    EXPECT(kit_send_text(one.socket, "y") == 1, "expected a byte to be sent");
    EXPECT(kelo_hal_net_set_block(one.socket, true) == 0, "expected set_block to return 0");
    EXPECT(kelo_hal_net_get_errno() == KELO_ERR_BAD_SOCKET,
           "expected calls that succeed to leave the code, it is %d",
           (int)kelo_hal_net_get_errno());
    kit_disconnect(&one);
}

void socket_an_accept_tells_the_peer(void) {
    const uint16_t port = kit->free_port();
    int32_t listening = kit_listen(port);
    uint32_t address = 0;
    uint32_t expected_address = 0;
    uint16_t number = 0;
    uint16_t expected_number = 0;
    EXPECT(kelo_hal_net_set_block(listening, false) == 0, "expected set_block to return 0");
    EXPECT(kelo_hal_net_accept(listening, NULL, NULL) < 0, "expected nobody to wait");
    EXPECT(kelo_hal_net_get_errno() == KELO_ERR_WOULD_BLOCK, "expected KELO_ERR_WOULD_BLOCK");
    conformance_peer_t *peer = kit->connect(port);
    EXPECT(kit_select(listening, kit->bound_ms) == 1, "expected a connection to wait");
    int32_t socket = kelo_hal_net_accept(listening, &address, &number);
    EXPECT(socket > 0, "expected the connection to be accepted");
    if (EXPECT(peer != NULL, "expected a peer to be able to connect")) {
        kit->endpoint(peer, &expected_address, &expected_number);
        EXPECT(address == expected_address, "expected address %08x in host byte order, got %08x",
               (unsigned)expected_address, (unsigned)address);
        EXPECT(number == expected_number, "expected port %u, got %u", (unsigned)expected_number,
               (unsigned)number);
        kit->close(peer);
    }
    kit_close(&socket);
    kit_close(&listening);
}

typedef struct {
    int32_t socket;
    atomic_bool begun;
    int32_t result;
} receiver_t;

static void receive_one(void *argument) {
    receiver_t *receiver = argument;
    char byte;
    atomic_store(&receiver->begun, true);
    receiver->result = kelo_hal_net_recv(receiver->socket, &byte, 1);
}

void socket_an_accepted_socket_waits_and_has_no_delay(void) {
    kit_connection_t one;
    kit_thread_t thread;
    uint32_t value = 1;
    uint16_t number = 0;
    uint32_t address;
    kit_connect(&one, kit->send_buffer_bytes);
    receiver_t receiver = {one.socket, false, 0};
    kit_start(&thread, receive_one, &receiver);
    kit_wait(&receiver.begun);
    kelo_hal_system_sleep(20);
    EXPECT(!atomic_load(&thread.ended), "expected an accepted socket to be in blocking mode");
    kit->send(one.peer, "x", 1);
    kit_join(&thread);
    EXPECT(receiver.result == 1, "expected the receive to wait for the byte");
    if (kit->option != NULL) {
        kit->endpoint(one.peer, &address, &number);
        EXPECT(kit->option(one.port, number, CONFORMANCE_NO_DELAY, &value) && value == 1,
               "expected an accepted socket to have no send delay");
    }
    kit_disconnect(&one);
}

void socket_a_close_ends_the_peers_stream(void) {
    kit_connection_t one;
    char buffer[8];
    kit_connect(&one, kit->send_buffer_bytes);
    EXPECT(kit_send_text(one.socket, "last") == 4, "expected 4 bytes to be sent");
    kit_close(&one.socket);
    EXPECT(kit_peer_receive(one.peer, buffer, 4) == 4, "expected what was sent before the close");
    EXPECT(kit_peer_ends(one.peer), "expected a close to end the peer's stream");
    kit_disconnect(&one);
}

void socket_an_accept_without_resources_does_not_spin(void) {
    enum { SPIN = 50, WATCHED_MS = 500 };
    if (kit->exhaust == NULL) {
        kit_skip("the harness has no exhaust");
        return;
    }
    const uint16_t port = kit->free_port();
    int32_t listening = kit_listen(port);
    EXPECT(kelo_hal_net_set_block(listening, false) == 0, "expected set_block to return 0");
    conformance_peer_t *peer = kit->connect(port);
    kit->exhaust(true);
    const uint64_t start = kit->now_ms();
    unsigned rounds = 0;
    int32_t socket = -1;
    while (socket <= 0 && kit_since(start) < WATCHED_MS && rounds <= SPIN) {
        if (kit_select(listening, WATCHED_MS) > 0) {
            socket = kelo_hal_net_accept(listening, NULL, NULL);
        }
        ++rounds;
    }
    kit->exhaust(false);
    EXPECT(rounds <= SPIN, "expected select not to return at once for ever when an accept fails");
    kit_close(&socket);
    if (peer != NULL) {
        kit->close(peer);
    }
    peer = kit->connect(port);
    while (socket <= 0 && kit_since(start) < kit->bound_ms) {
        if (kit_select(listening, WATCHED_MS) > 0) {
            socket = kelo_hal_net_accept(listening, NULL, NULL);
        }
    }
    EXPECT(socket > 0, "expected connections to be accepted again when there is room");
    kit_close(&socket);
    kit_close(&listening);
    if (peer != NULL) {
        kit->close(peer);
    }
}

void socket_an_address_can_be_used_again(void) {
    kit_connection_t one;
    kit_connect(&one, kit->send_buffer_bytes);
    const uint16_t port = one.port;
    kit_close(&one.socket); /* the port's side ends it first, so that its stack remembers it */
    EXPECT(kit_peer_ends(one.peer), "expected a close to end the peer's stream");
    kit_disconnect(&one);
    int32_t again = kit_listen(port);
    kit_close(&again);
}

void socket_options_reach_the_system(void) {
    if (kit->option == NULL) {
        kit_skip("the harness has no option");
        return;
    }
    const uint16_t port = kit->free_port();
    int32_t listening = kit_listen(port);
    uint32_t first = 0;
    uint32_t second = 0;
    uint32_t value = 0;
    EXPECT(kit->option(port, 0, CONFORMANCE_CLOSE_ON_EXEC, &value) && value == 1,
           "expected set_cloexec to keep the socket out of other programs");
    kelo_hal_net_set_bufsize(listening, kit->send_buffer_bytes / 4, KELO_BUFFER_SEND);
    EXPECT(kit->option(port, 0, CONFORMANCE_SEND_BUFFER, &first), "expected a send buffer");
    kelo_hal_net_set_bufsize(listening, kit->send_buffer_bytes, KELO_BUFFER_SEND);
    EXPECT(kit->option(port, 0, CONFORMANCE_SEND_BUFFER, &second), "expected a send buffer");
    EXPECT(second >= kit->send_buffer_bytes && first < second,
           "expected a send buffer of %u bytes, it has %u", (unsigned)kit->send_buffer_bytes,
           (unsigned)second);
    EXPECT(kelo_hal_net_set_keepalive(listening, true, 30, 5, 1) == 0,
           "expected set_keepalive to return 0");
    static const struct {
        conformance_option_t option;
        uint32_t value;
        const char *name;
    } expected[] = {{CONFORMANCE_KEEP_ALIVE, 1, "on"},
                    {CONFORMANCE_KEEP_ALIVE_IDLE, 30, "idle time"},
                    {CONFORMANCE_KEEP_ALIVE_INTERVAL, 5, "interval"},
                    {CONFORMANCE_KEEP_ALIVE_COUNT, 1, "count"}};
    for (size_t i = 0; i < sizeof expected / sizeof expected[0]; ++i) {
        EXPECT(kit->option(port, 0, expected[i].option, &value) && value == expected[i].value,
               "expected the keep-alive's %s to be %u, not %u", expected[i].name,
               (unsigned)expected[i].value, (unsigned)value);
    }
    kit_close(&listening);
}

void socket_wrong_uses_fail(void) {
    const uint16_t port = kit->free_port();
    int32_t listening = kit_listen(port);
    int32_t other = kelo_hal_net_socket_create(KELO_SOCKET_TCP);
    char byte;
    EXPECT(kelo_hal_net_bind(other, KELO_ADDRESS_ANY, port) < 0,
           "expected a taken port to be refused");
    EXPECT(kelo_hal_net_get_errno() < 0, "expected a negative code");
    EXPECT(kelo_hal_net_set_bufsize(other, 4096, KELO_BUFFER_SEND + 1) < 0,
           "expected other kinds of buffer to be refused");
    EXPECT(kelo_hal_net_socket_bind(other, "no address") < 0, "expected no address to be refused");
    EXPECT(kelo_hal_net_socket_create(2) < 0, "expected another kind of socket to be refused");
    EXPECT(kelo_hal_net_recvfrom(listening, &byte, 1, NULL, NULL) < 0,
           "expected no datagram from a TCP socket");
    EXPECT(kit->connect(kit->free_port()) == NULL, "expected nobody to listen there");
    kit_close(&other);
    kit_close(&listening);
}
