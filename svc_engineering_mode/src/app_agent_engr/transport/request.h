/* A request of an app, and the replies to it. */
#pragma once

#include "platform/owners.h"

#include <cstdint>

/** Return codes of reply frames. */
enum reply_code : uint32_t { reply_success = 0, reply_failure = 1 };

/** Source of a request, to which its answer goes. */
struct request_source {
    int32_t socket;   /**< the client */
    uint32_t fr_num;  /**< its frame number */
    uint32_t fr_type; /**< its frame type */
};

/** A request as handlers see it. */
struct lan_request {
    request_source source;
    /** Payload, a 0 byte behind it; decrypted unless the frame type says otherwise. */
    const uint8_t *tmp_out;
    uint32_t tmp_len; /**< its length in bytes */

    /** The payload as NUL-terminated text. */
    [[nodiscard]] const char *text() const { return reinterpret_cast<const char *>(tmp_out); }
};

/**
 * Answers with success and no payload.
 *
 * @return as __mlp_gw_tcp_send
 */
int32_t reply_empty(const request_source &source);
/**
 * Answers with a NUL-terminated text, encrypted, sent without its NUL.
 *
 * @return as __mlp_gw_tcp_send
 */
int32_t reply_text(const request_source &source, reply_code ret, const char *text);
/**
 * The same with a text that may be long: it is taken over and released as soon as it is encrypted.
 *
 * @return as __mlp_gw_tcp_send
 */
int32_t reply_text(const request_source &source, reply_code ret, platform::heap_block<char> text);
/** Answers with failure and a message. */
void refuse(const request_source &source, const char *message);

/**
 * Decrypts a request's payload with the TCP key; when that fails, the request is refused.
 *
 * @param payload   len bytes of ciphertext
 * @param[out] out  on success the NUL-terminated text
 * @return 0, or the decryption's code
 */
[[nodiscard]] int32_t __lan_encryption_pre_handle(const request_source &source,
                                                  const uint8_t *payload, uint32_t len,
                                                  platform::heap_block<char> &out);
