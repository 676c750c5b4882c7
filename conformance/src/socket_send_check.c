/* Promises of sends. */
#include "kit.h"

enum { PATIENCE_MS = 2000 };

/** A thread that sends frames until one fails. */
typedef struct {
    kit_thread_t thread;
    int32_t socket;
    const char *frame;
    uint32_t length;
    unsigned frames_max;
    atomic_uint sent; /**< whole frames */
    int32_t result;   /**< of the last send */
    int32_t code;
    uint64_t ended_at;
} sender_t;

static void send_frames(void *argument) {
    sender_t *sender = argument;
    while (atomic_load(&sender->sent) < sender->frames_max) {
        sender->result = kelo_hal_net_send(sender->socket, sender->frame, sender->length);
        if (sender->result != (int32_t)sender->length) {
            sender->code = kelo_hal_net_get_errno();
            break;
        }
        atomic_fetch_add(&sender->sent, 1);
    }
    sender->ended_at = kit->now_ms();
}

static void start_sender(sender_t *sender, int32_t socket, unsigned frame, char letter,
                         unsigned frames_max) {
    memset(sender, 0, sizeof *sender);
    sender->socket = socket;
    sender->frame = kit_frame(frame, letter);
    sender->length = (uint32_t)kit_frame_bytes();
    sender->frames_max = frames_max;
    kit_start(&sender->thread, send_frames, sender);
}

static void expect_letters(const char *bytes, size_t count, char letter) {
    size_t same = 0;
    while (same < count && bytes[same] == letter) {
        ++same;
    }
    EXPECT(same == count, "expected no byte of one frame inside another");
}

void socket_a_large_send_reaches_a_slow_reader(void) {
    kit_connection_t one;
    sender_t sender;
    kit_connect(&one, kit->send_buffer_bytes);
    EXPECT(kelo_hal_net_set_block(one.socket, false) == 0, "expected set_block to return 0");
    char *frame = kit_frame(0, 0);
    for (size_t i = 0; i < kit_frame_bytes(); ++i) {
        frame[i] = (char)(i * 31 >> 8);
    }
    memset(&sender, 0, sizeof sender);
    sender.socket = one.socket;
    sender.frame = frame;
    sender.length = (uint32_t)kit_frame_bytes();
    sender.frames_max = 1;
    kit_start(&sender.thread, send_frames, &sender);
    char *received = kit_frame(1, 0);
    size_t count = 0;
    while (count < kit_frame_bytes()) {
        const size_t rest = kit_frame_bytes() - count;
        const size_t part = rest < kit_frame_bytes() / 16 + 1 ? rest : kit_frame_bytes() / 16 + 1;
        const size_t more = kit_peer_receive(one.peer, received + count, part);
        if (!EXPECT_IN_TIME(more == part, "expected the stream to go on after %u bytes",
                            (unsigned)count)) {
            break;
        }
        count += more;
        kelo_hal_system_sleep(1);
    }
    kit_join(&sender.thread);
    /* A send gives up when a reader on a busy machine takes nothing for 2 s. */
    if (EXPECT_IN_TIME(atomic_load(&sender.sent) == 1,
                       "expected a send to return its length, not %d", (int)sender.result)) {
        EXPECT(memcmp(frame, received, kit_frame_bytes()) == 0,
               "expected the bytes that were sent");
    }
    kit_disconnect(&one);
}

void socket_a_send_gives_up_after_two_seconds(void) {
    kit_connection_t one;
    sender_t first;
    sender_t second;
    kit_connect(&one, kit->send_buffer_bytes);
    const uint64_t start = kit->now_ms();
    start_sender(&first, one.socket, 0, 'a', 1);
    start_sender(&second, one.socket, 1, 'b', 1);
    kit_join(&first.thread);
    kit_join(&second.thread);
    const uint64_t last = first.ended_at > second.ended_at ? first.ended_at : second.ended_at;
    EXPECT(first.result != (int32_t)first.length && second.result != (int32_t)second.length,
           "expected both sends to fail when the peer takes nothing");
    EXPECT(first.code == KELO_ERR_TIMED_OUT || second.code == KELO_ERR_TIMED_OUT,
           "expected KELO_ERR_TIMED_OUT, not %d and %d", (int)first.code, (int)second.code);
    EXPECT(last - start >= PATIENCE_MS, "expected 2 s of patience, there were %u ms",
           (unsigned)(last - start));
    EXPECT_IN_TIME(last - start <= PATIENCE_MS + kit->at_once_ms,
                   "expected a send, and one that waits for its turn, to end after 2 s, not %u ms",
                   (unsigned)(last - start));
    kit_disconnect(&one);
}

void socket_nothing_follows_a_send_that_was_cut(void) {
    for (int by_stop = 0; by_stop < 2; ++by_stop) {
        kit_connection_t one;
        sender_t sender;
        kit_connect(&one, kit->send_buffer_bytes);
        start_sender(&sender, one.socket, 0, 'a', 1);
        char *received = kit_frame(2, 0);
        size_t count = 0;
        if (by_stop == 1) {
            count = kit_peer_receive(one.peer, received, 1); /* it has begun */
            kit_stop(&sender.thread);
        } else {
            kit_join(&sender.thread);
        }
        EXPECT(sender.result != (int32_t)sender.length, "expected the send to be cut");
        /* There is room again when the peer has read what came. */
        int32_t more = 0;
        do {
            more = kit->receive(one.peer, received, kit_frame_bytes(), 100);
            count += more > 0 ? (size_t)more : 0;
        } while (more > 0);
        EXPECT(count < kit_frame_bytes(), "expected a frame that was cut to lack its end");
        EXPECT(kit_send_text(one.socket, "x") != 1,
               "expected sends to fail after one that was cut in the middle");
        kit_disconnect(&one);
    }
}

/** Reads at a rate for some seconds; whether the sender was kept. */
static bool is_reader_kept(uint32_t bytes_per_s, uint32_t send_buffer, int32_t *code) {
    enum { READ_FOR_MS = 9000, STEP_MS = 125, FRAMES = 1000000 };
    kit_connection_t one;
    sender_t sender;
    kit_connect(&one, send_buffer);
    start_sender(&sender, one.socket, 0, 'a', FRAMES);
    /* What the buffers take at first says nothing about the reader. */
    unsigned sent;
    do {
        sent = atomic_load(&sender.sent);
        kelo_hal_system_sleep(50);
    } while (sent != atomic_load(&sender.sent));
    const uint64_t start = kit->now_ms();
    uint64_t taken = 0;
    char *room = kit_frame(2, 0);
    while (kit_since(start) < READ_FOR_MS && !atomic_load(&sender.thread.ended)) {
        const uint64_t due = (uint64_t)kit_since(start) * bytes_per_s / 1000;
        while (taken < due) {
            const size_t rest = (size_t)(due - taken);
            const size_t size = rest < kit_frame_bytes() ? rest : kit_frame_bytes();
            const int32_t more = kit->receive(one.peer, room, size, STEP_MS);
            if (more <= 0) {
                break;
            }
            taken += (uint64_t)more;
        }
        kelo_hal_system_sleep(STEP_MS);
    }
    const bool is_kept = !atomic_load(&sender.thread.ended);
    if (is_kept) {
        kit_stop(&sender.thread);
    } else {
        kit_join(&sender.thread);
    }
    *code = sender.code;
    kit_disconnect(&one);
    return is_kept;
}

void socket_a_reader_at_the_least_rate_is_kept(void) {
    int32_t code = 0;
    EXPECT_IN_TIME(is_reader_kept(160 * 1024, kit->send_buffer_bytes, &code),
                   "expected a reader of 160 KiB/s to be kept, it was dropped with %d", (int)code);
    EXPECT_IN_TIME(is_reader_kept(160 * 1024, 0, &code),
                   "expected a reader of 160 KiB/s to be kept with the system's own send buffer, "
                   "it was dropped with %d",
                   (int)code);
}

void socket_a_reader_below_the_least_rate_is_not(void) {
    int32_t code = 0;
    EXPECT(!is_reader_kept(40 * 1024, kit->send_buffer_bytes, &code),
           "expected a reader of 40 KiB/s to be dropped");
    EXPECT(code == KELO_ERR_TIMED_OUT, "expected KELO_ERR_TIMED_OUT, not %d", (int)code);
}

void socket_sends_never_interleave(void) {
    enum { SENDERS = 2, FRAMES = 4 };
    kit_connection_t one;
    sender_t senders[SENDERS];
    kit_connect(&one, kit->send_buffer_bytes);
    for (unsigned i = 0; i < SENDERS; ++i) {
        start_sender(&senders[i], one.socket, i, (char)('a' + i), FRAMES);
    }
    for (int i = 0; i < SENDERS * FRAMES; ++i) {
        char *received = kit_frame(2, 0);
        const size_t count = kit_peer_receive(one.peer, received, kit_frame_bytes());
        if (!EXPECT_IN_TIME(count == kit_frame_bytes(), "expected %d whole frames",
                            SENDERS * FRAMES)) {
            break;
        }
        expect_letters(received, kit_frame_bytes(), received[0]);
    }
    for (int i = 0; i < SENDERS; ++i) {
        kit_join(&senders[i].thread);
        EXPECT_IN_TIME(atomic_load(&senders[i].sent) == FRAMES, "expected every send to succeed");
    }
    kit_disconnect(&one);
}

void socket_a_shutdown_ends_sends_and_nothing_else(void) {
    kit_connection_t one;
    sender_t holder;
    sender_t waiter;
    char buffer[32];
    kit_connect(&one, kit->send_buffer_bytes);
    EXPECT(kit_send_text(one.socket, "accepted") == 8, "expected 8 bytes to be sent");
    start_sender(&holder, one.socket, 0, 'a', 1);
    start_sender(&waiter, one.socket, 1, 'b', 1);
    EXPECT(kit_peer_receive(one.peer, buffer, 9) == 9 && memcmp(buffer, "accepted", 8) == 0,
           "expected the bytes that were sent");
    kelo_hal_system_sleep(20);
    const uint64_t start = kit->now_ms();
    EXPECT(kelo_hal_net_shutdown(one.socket) == 0, "expected shutdown to return 0");
    kit_join(&holder.thread);
    kit_join(&waiter.thread);
    EXPECT_IN_TIME(kit_at_once(start), "expected a shutdown to end sends at once, it took %u ms",
                   (unsigned)kit_since(start));
    EXPECT(holder.result != (int32_t)holder.length && waiter.result != (int32_t)waiter.length,
           "expected the sends to fail");
    EXPECT(kit_send_text(one.socket, "late") != 4, "expected later sends to fail");
    kit->send(one.peer, "still heard", 11);
    EXPECT(kelo_hal_net_recv(one.socket, buffer, sizeof buffer) == 11,
           "expected receiving to go on");
    /* What was accepted arrives, all of one frame, and then the end. */
    char *received = kit_frame(2, 0);
    const size_t count = kit_peer_receive(one.peer, received, kit_frame_bytes());
    EXPECT(count != 0 && count < kit_frame_bytes(), "expected what was accepted to go out");
    expect_letters(received, count, received[0]);
    EXPECT(kit_peer_ends(one.peer), "expected a shutdown to end the peer's stream");
    kit_disconnect(&one);
}
