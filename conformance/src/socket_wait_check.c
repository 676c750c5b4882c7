/* Promises of waits: what ends them, and that nothing is lost just before they begin. */
#include "kit.h"

/** A call that waits on a socket. */
typedef int32_t (*call_t)(int32_t socket);

static int32_t select_call(int32_t socket) {
    return kit_select(socket, AN_HOUR_MS);
}

static int32_t receive_call(int32_t socket) {
    char byte;
    return kelo_hal_net_recv(socket, &byte, 1);
}

static int32_t accept_call(int32_t socket) {
    return kelo_hal_net_accept(socket, NULL, NULL);
}

static int32_t receive_from_call(int32_t socket) {
    char byte;
    return kelo_hal_net_recvfrom(socket, &byte, 1, NULL, NULL);
}

static int32_t send_call(int32_t socket) {
    const uint32_t length = (uint32_t)kit_frame_bytes();
    return kelo_hal_net_send(socket, kit->memory, length) == (int32_t)length ? 1 : -1;
}

enum { CONNECTED, LISTENING, DATAGRAM };

static const struct {
    const char *name;
    call_t call;
    int kind;
} waits[] = {
    {"select", select_call, CONNECTED},
    {"select on a listening socket", select_call, LISTENING},
    {"select on UDP", select_call, DATAGRAM},
    {"recv", receive_call, CONNECTED},
    {"accept", accept_call, LISTENING},
    {"recvfrom", receive_from_call, DATAGRAM},
    {"send", send_call, CONNECTED},
};
enum { WAIT_COUNT = sizeof waits / sizeof waits[0] };

typedef struct {
    call_t call;
    int32_t socket;
    bool slowly;
    bool sleeps_first; /**< so that a stop has come before the wait */
    atomic_bool begun;
    int32_t result;
    int32_t code;
} waiter_t;

static void wait_on_it(void *argument) {
    waiter_t *waiter = argument;
    if (waiter->slowly) {
        kit->slow(true);
    }
    atomic_store(&waiter->begun, true);
    if (waiter->sleeps_first) {
        kelo_hal_system_sleep(AN_HOUR_MS);
    }
    waiter->result = waiter->call(waiter->socket);
    waiter->code = kelo_hal_net_get_errno();
}

/** Lets a thread begin each wait, ends it, and looks at how it ended. */
static void end_waits(bool by_close, bool slowly, uint32_t pause_ms) {
    for (size_t i = 0; i < WAIT_COUNT; ++i) {
        kit_connection_t tcp;
        kit_thread_t thread;
        kit_connect(&tcp, kit->send_buffer_bytes);
        int32_t udp = kit_open_datagrams(kit->free_port());
        int32_t *socket = waits[i].kind == CONNECTED   ? &tcp.socket
                          : waits[i].kind == LISTENING ? &tcp.listening
                                                       : &udp;
        waiter_t waiter = {waits[i].call, *socket, slowly, false, false, 1, 0};
        kit_start(&thread, wait_on_it, &waiter);
        kit_wait(&waiter.begun);
        if (pause_ms != 0) {
            kelo_hal_system_sleep(pause_ms);
        }
        const uint64_t start = kit->now_ms();
        if (by_close) {
            kit_close(socket);
            kit_join(&thread);
        } else {
            kit_stop(&thread);
        }
        EXPECT_IN_TIME(kit_at_once(start), "expected %s to end at once, it took %u ms",
                       waits[i].name, (unsigned)kit_since(start));
        const int32_t expected = by_close ? KELO_ERR_BAD_SOCKET : KELO_ERR_STOPPED;
        EXPECT(waiter.result < 0, "expected %s to fail, it returned %d", waits[i].name,
               (int)waiter.result);
        EXPECT(waiter.code == expected, "expected %s to fail with %d, not %d", waits[i].name,
               (int)expected, (int)waiter.code);
        kit_close(&udp);
        kit_disconnect(&tcp);
    }
}

void socket_a_close_ends_every_wait_at_once(void) {
    end_waits(true, false, 20);
}

void socket_a_stop_ends_every_wait_at_once(void) {
    end_waits(false, false, 20);
}

void socket_a_close_just_before_a_wait_is_not_lost(void) {
    if (kit->slow == NULL) {
        kit_skip("the harness has no slow");
        return;
    }
    end_waits(true, true, 0);
}

void socket_a_stop_just_before_a_wait_is_not_lost(void) {
    if (kit->slow == NULL) {
        kit_skip("the harness has no slow");
        return;
    }
    end_waits(false, true, 0);
}

void socket_a_stopped_thread_does_not_wait(void) {
    for (size_t i = 0; i < WAIT_COUNT; ++i) {
        for (int blocks = 0; blocks < 2; ++blocks) {
            kit_connection_t tcp;
            kit_thread_t thread;
            kit_connect(&tcp, kit->send_buffer_bytes);
            int32_t udp = kit_open_datagrams(kit->free_port());
            const int32_t socket = waits[i].kind == CONNECTED   ? tcp.socket
                                   : waits[i].kind == LISTENING ? tcp.listening
                                                                : udp;
            waiter_t waiter = {waits[i].call, socket, false, true, false, 1, 0};
            kelo_hal_net_set_block(socket, blocks == 1);
            kit_start(&thread, wait_on_it, &waiter);
            kit_wait(&waiter.begun);
            kit_stop(&thread);
            const bool is_receive = waits[i].call == receive_call;
            EXPECT(waiter.result < 0, "expected %s on a stopped thread to fail", waits[i].name);
            /* Of the calls that need not wait in non-blocking mode the contract names one. */
            EXPECT(waiter.code == KELO_ERR_STOPPED || (blocks == 0 && !is_receive),
                   "expected %s on a stopped thread to fail with KELO_ERR_STOPPED, not %d",
                   waits[i].name, (int)waiter.code);
            kit_close(&udp);
            kit_disconnect(&tcp);
        }
    }
}
