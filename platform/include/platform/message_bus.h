/*
 * Message bus: hands blocks of data from the thread that posts them to a callback on the bus's own
 * delivery thread, in the order in which they were posted.
 */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Reference-counted block of a message. The port may keep more behind these fields. */
typedef struct rfc_data {
    void *data; /**< the posted bytes, the bus's own copy, aligned for any type, followed by one 0
                   byte */
    uint32_t length; /**< number of posted bytes */
} rfc_data_t;

/** One message as the callback sees it; valid during the callback. */
typedef struct {
    uint16_t message_id; /**< id under which it was posted */
    rfc_data_t
        *rfc; /**< the data; the callback owns one reference and gives it back with put_rfc_data */
} cmmod_msg_t;

/** Receiver of messages, called on the bus's delivery thread, one message at a time. */
typedef void (*cmmod_callback_t)(cmmod_msg_t *message);

/** Value of a message-id slot without registration. */
enum { CMMOD_NO_MESSAGE_ID = 0xFFFF };

/**
 * Registers a receiver. Any thread; does not block.
 *
 * @param callback         called for each message posted under the new id
 * @param[out] message_id  the new id on success, else unchanged; never CMMOD_NO_MESSAGE_ID. An id
 *     is reused as late as possible
 * @return 0; any other value when there is no memory or no free id
 */
int32_t cmmod_reg_msgcb(cmmod_callback_t callback, uint16_t *message_id);

/**
 * Ends a registration. Messages that still wait are dropped and their data released. Returns only
 * when the callback no longer runs, unless called from that callback. Any other thread.
 *
 * @return 0; else the id is unknown, which changes nothing
 */
int32_t cmmod_unreg_msgcb(uint16_t message_id);

/**
 * Posts a message: copies the bytes and returns. REQUIRED of a port: 16 messages that wait for
 * delivery fit into the queue. Any thread; does not block.
 *
 * @param message_id  a registered id
 * @param data        the bytes, read only during the call; may be null when length is 0
 * @param length      number of bytes
 * @return 0; else the id is unknown, there is no memory, or the queue is full. The caller passes
 *     the code on
 */
int32_t cmmod_post_msg(uint16_t message_id, const void *data, uint32_t length);

/**
 * Gives one reference back; the last one releases the block. Any thread; does not block.
 *
 * @param rfc  a block with a reference of the caller's; null does nothing
 */
void put_rfc_data(rfc_data_t *rfc);

#ifdef __cplusplus
}
#endif
