/* Sending to one client. May be called on any thread inside the agent; waits for room as the port's
 * send does. */
#pragma once

#include "platform/owners.h"

#include <cstdint>

/** A reply-form frame for any number of clients: encrypted and built once, when the first of them
 * is sent it. */
class tcp_frame {
  public:
    /** The arguments are those of __mlp_gw_tcp_send; data must outlive the frame. */
    tcp_frame(uint32_t fr_num, uint32_t fr_type, uint32_t ret, const void *data, uint32_t len,
              bool encrypt)
        : fr_num_(fr_num), fr_type_(fr_type), ret_(ret), len_(len), encrypt_(encrypt),
          data_(static_cast<const uint8_t *>(data)) {}

    /** Of an encrypted text, which it takes over and releases once that is encrypted: a long one is
     * in memory twice at most. For one client. */
    tcp_frame(uint32_t fr_num, uint32_t fr_type, uint32_t ret, platform::heap_block<char> text);

    /**
     * Sends it to one client.
     *
     * @return as __mlp_gw_tcp_send
     */
    int32_t send_to(int32_t socket);

  private:
    [[nodiscard]] int32_t build();
    void log_cipher() const;

    uint32_t fr_num_;
    uint32_t fr_type_;
    uint32_t ret_;
    uint32_t len_;
    bool encrypt_;
    const uint8_t *data_;
    platform::heap_block<char> text_;
    platform::heap_block<uint8_t> frame_;
    uint32_t size_ = 0;
    uint32_t cipher_len_ = 0; /**< 0: not encrypted */
};

/**
 * Sends one reply-form frame to one client.
 *
 * @param data     len payload bytes; may be null when len is 0
 * @param encrypt  whether the payload is encrypted with the TCP key; an empty one never is
 * @return 0 sent whole; -925 the socket is marked faulty or unknown, or the agent is being stopped
 *     and this is not the server task; nothing was written; -909 the write failed, the socket is
 *     now marked faulty; -1 no memory for the frame; else the cipher's code
 */
int32_t __mlp_gw_tcp_send(int32_t socket, uint32_t fr_num, uint32_t fr_type, uint32_t ret,
                          const void *data, uint32_t len, bool encrypt);

/**
 * Sends a large plain payload in segments of at most 1024 bytes, one every 300 ms. The last segment
 * is the rest, 0 bytes long when nothing is left.
 *
 * @param data  len payload bytes; may be null when len is 0
 * @return 0, -925, -909 or -1 as above; what was sent before a failure stays sent
 */
int32_t __mlp_gw_tcp_large_send(int32_t socket, uint32_t fr_num, uint32_t fr_type, uint32_t ret,
                                const void *data, uint32_t len);
