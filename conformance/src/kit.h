/* What the checks of the kit share: expectations, threads, and small steps over the contracts. */
#pragma once

#include "conformance/harness.h"

#include "platform/clock.h"
#include "platform/socket.h"
#include "platform/thread.h"

#include <stdatomic.h>
#include <string.h>

/** Longer than any check. */
#define AN_HOUR_MS 3600000u
/** A number that no socket has. */
#define NO_SOCKET 0x7FFFFFFE

/** The port under test. */
extern const conformance_harness_t *kit;

/* ---- expectations; the first that fails is told, and the check goes on so that it cleans up ----
 */

/** Says what was expected, printf-like, when the condition is false. Yields the condition. */
#define EXPECT(condition, ...) kit_expect((condition), __FILE__, __LINE__, __VA_ARGS__)
/** As EXPECT, for what may also fail on a busy machine: the check is then repeated. */
#define EXPECT_IN_TIME(condition, ...)                                                             \
    kit_expect_in_time((condition), __FILE__, __LINE__, __VA_ARGS__)

bool kit_expect(bool condition, const char *file, int line, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
bool kit_expect_in_time(bool condition, const char *file, int line, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
/** Ends the check of this promise as skipped. */
void kit_skip(const char *reason);

/* ---- threads and waits ---- */

/** A thread of the port that runs a function. */
typedef struct {
    thrd_handle_t handle;
    void (*body)(void *argument);
    void *argument;
    atomic_bool ended;
} kit_thread_t;

/** Starts a thread. */
void kit_start(kit_thread_t *thread, void (*body)(void *argument), void *argument);
/** Waits for its end and releases it; gives the run up when it does not come. */
void kit_join(kit_thread_t *thread);
/** Tells it to stop, which must end it, and releases it; gives the run up when it does not end. */
void kit_stop(kit_thread_t *thread);
/** Sleeps until a flag is set; false when it is not within the bound. */
bool kit_wait(atomic_bool *flag);
/** Sleeps until a count is reached; false when it is not within the bound. */
bool kit_wait_count(atomic_uint *count, unsigned wanted);
/** Milliseconds since a moment of kit->now_ms. */
uint32_t kit_since(uint64_t start);
/** Whether a call that began then ended at once. */
bool kit_at_once(uint64_t start);

/* ---- sockets ---- */

/** A connection between the port and a peer. */
typedef struct {
    uint16_t port;
    int32_t listening;
    int32_t socket;
    conformance_peer_t *peer;
} kit_connection_t;

/** A listening socket with the options that the agent sets. */
int32_t kit_listen(uint16_t port);
/** Connects a peer; send_buffer 0 leaves the send buffer as it is. */
void kit_connect(kit_connection_t *connection, uint32_t send_buffer);
/** Closes what is still open of it. */
void kit_disconnect(kit_connection_t *connection);
/** Closes a socket and sets its number to 0. */
void kit_close(int32_t *socket);
/** A bound UDP socket. */
int32_t kit_open_datagrams(uint16_t port);
/** Selects one descriptor for reading. */
int32_t kit_select(int32_t socket, uint32_t milliseconds);
int32_t kit_send_text(int32_t socket, const char *text);
/** Receives so many bytes at a peer, or fewer when nothing more comes. */
size_t kit_peer_receive(conformance_peer_t *peer, void *bytes, size_t length);
/** Drops what a peer gets until the end of its stream; false when that does not come. */
bool kit_peer_ends(conformance_peer_t *peer);

/** Bytes of a frame. */
size_t kit_frame_bytes(void);
/** One of three frames, filled with a letter. */
char *kit_frame(unsigned number, char letter);
