/* Threads, waits and small steps over the contracts for the checks. */
#include "kit.h"

#include "runner.h"

static void run_body(void *argument) {
    kit_thread_t *thread = argument;
    thread->body(thread->argument);
    atomic_store(&thread->ended, true);
}

void kit_start(kit_thread_t *thread, void (*body)(void *argument), void *argument) {
    const thrd_param_t param = {kit->stack_bytes, 3, "conformance"};
    thread->body = body;
    thread->argument = argument;
    thread->handle = NULL;
    atomic_store(&thread->ended, false);
    if (!EXPECT(CreateAndStart(&thread->handle, NULL, NULL, run_body, thread, &param) == 0,
                "expected a thread to be made")) {
        run_give_up("no thread");
    }
}

void kit_join(kit_thread_t *thread) {
    if (!EXPECT(kit_wait(&thread->ended), "expected a thread to come to its end")) {
        run_give_up("a thread does not end");
    }
    EXPECT(DeleteThrdHandle(thread->handle) == 0, "expected an ended thread to be released");
    thread->handle = NULL;
}

static void delete_thread(void *argument) {
    kit_thread_t *thread = argument;
    EXPECT(DeleteThrdHandle(thread->handle) == 0, "expected DeleteThrdHandle to return 0");
}

void kit_stop(kit_thread_t *thread) {
    /* On a thread of its own, so that a stop that hangs is told. */
    kit_thread_t stopper;
    kit_start(&stopper, delete_thread, thread);
    if (!EXPECT(kit_wait(&stopper.ended), "expected a stop to end the thread's wait")) {
        run_give_up("a stop does not end a wait");
    }
    thread->handle = NULL;
    kit_join(&stopper);
}

bool kit_wait(atomic_bool *flag) {
    const uint64_t start = kit->now_ms();
    while (!atomic_load(flag)) {
        if (kit_since(start) > kit->bound_ms) {
            return false;
        }
        kelo_hal_system_sleep(1);
    }
    return true;
}

bool kit_wait_count(atomic_uint *count, unsigned wanted) {
    const uint64_t start = kit->now_ms();
    while (atomic_load(count) < wanted) {
        if (kit_since(start) > kit->bound_ms) {
            return false;
        }
        kelo_hal_system_sleep(1);
    }
    return true;
}

uint32_t kit_since(uint64_t start) {
    return (uint32_t)(kit->now_ms() - start);
}

bool kit_at_once(uint64_t start) {
    return kit_since(start) <= kit->at_once_ms;
}

static int32_t listen_with(uint16_t port, uint32_t send_buffer) {
    const int32_t listening = kelo_hal_net_socket_create(KELO_SOCKET_TCP);
    EXPECT(listening > 0, "expected a TCP socket");
    if (send_buffer != 0) {
        EXPECT(kelo_hal_net_set_bufsize(listening, send_buffer, KELO_BUFFER_SEND) == 0,
               "expected a send buffer of %u bytes", (unsigned)send_buffer);
    }
    EXPECT(kelo_hal_net_set_reuse(listening) == 0, "expected set_reuse to return 0");
    EXPECT(kelo_hal_net_bind(listening, KELO_ADDRESS_ANY, port) == 0,
           "expected port %u to be bound", (unsigned)port);
    EXPECT(kelo_hal_net_set_cloexec(listening) == 0, "expected set_cloexec to return 0");
    EXPECT(kelo_hal_net_listen(listening, 5) == 0, "expected the socket to listen");
    return listening;
}

int32_t kit_listen(uint16_t port) {
    return listen_with(port, kit->send_buffer_bytes);
}

void kit_connect(kit_connection_t *connection, uint32_t send_buffer) {
    connection->port = kit->free_port();
    connection->listening = listen_with(connection->port, send_buffer);
    connection->peer = kit->connect(connection->port);
    if (!EXPECT(connection->peer != NULL, "expected a peer to be able to connect")) {
        run_give_up("no connection");
    }
    connection->socket = kelo_hal_net_accept(connection->listening, NULL, NULL);
    EXPECT(connection->socket > 0, "expected the connection to be accepted");
}

void kit_disconnect(kit_connection_t *connection) {
    kit_close(&connection->socket);
    kit_close(&connection->listening);
    if (connection->peer != NULL) {
        kit->close(connection->peer);
        connection->peer = NULL;
    }
}

void kit_close(int32_t *socket) {
    if (*socket > 0) {
        EXPECT(kelo_hal_net_close(*socket) == 0, "expected the close of a socket to return 0");
    }
    *socket = 0;
}

int32_t kit_open_datagrams(uint16_t port) {
    const int32_t socket = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
    EXPECT(socket > 0, "expected a UDP socket");
    EXPECT(kelo_hal_net_bind(socket, KELO_ADDRESS_ANY, port) == 0, "expected port %u to be bound",
           (unsigned)port);
    return socket;
}

int32_t kit_select(int32_t socket, uint32_t milliseconds) {
    kelo_fd_set_t set;
    kelo_hal_net_fd_zero(&set);
    kelo_hal_net_fd_set(socket, &set);
    return kelo_hal_net_select(socket + 1, &set, NULL, NULL, milliseconds);
}

int32_t kit_send_text(int32_t socket, const char *text) {
    return kelo_hal_net_send(socket, text, (uint32_t)strlen(text));
}

size_t kit_peer_receive(conformance_peer_t *peer, void *bytes, size_t length) {
    size_t received = 0;
    while (received < length) {
        const int32_t more =
            kit->receive(peer, (char *)bytes + received, length - received, kit->bound_ms);
        if (more <= 0) {
            break;
        }
        received += (size_t)more;
    }
    return received;
}

bool kit_peer_ends(conformance_peer_t *peer) {
    char dropped[256];
    int32_t received;
    do {
        received = kit->receive(peer, dropped, sizeof dropped, kit->bound_ms);
    } while (received > 0);
    return received == 0;
}

size_t kit_frame_bytes(void) {
    return kit->memory_bytes / 3;
}

char *kit_frame(unsigned number, char letter) {
    char *frame = (char *)kit->memory + number * kit_frame_bytes();
    memset(frame, letter, kit_frame_bytes());
    return frame;
}
