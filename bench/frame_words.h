/* The words of a frame: 32 bits, big-endian. */
#pragma once

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>

inline void put_word(uint8_t *at, uint32_t word) {
    word = htonl(word);
    std::memcpy(at, &word, sizeof word);
}

inline uint32_t get_word(const uint8_t *at) {
    uint32_t word = 0;
    std::memcpy(&word, at, sizeof word);
    return ntohl(word);
}
