/*
 * Bounded reading and writing of big-endian words and bytes. Bytes of frames are accessed in no
 * other way.
 */
#pragma once

#include <cstdint>
#include <cstring>

/** Reads from a byte range, front to back. A read beyond the end yields 0 and sets the overrun
 * state, which stays. */
class byte_reader {
  public:
    /** The range must outlive the reader. */
    byte_reader(const uint8_t *bytes, uint32_t size) : bytes_(bytes), size_(size) {}

    /** Bytes not read yet. */
    [[nodiscard]] uint32_t left() const { return size_ - position_; }
    /** Whether every read so far was within the range. */
    [[nodiscard]] bool ok() const { return ok_; }

    uint32_t u32() {
        if (!take(4)) {
            return 0;
        }
        const uint8_t *at = bytes_ + position_ - 4;
        return static_cast<uint32_t>(at[0]) << 24U | static_cast<uint32_t>(at[1]) << 16U |
               static_cast<uint32_t>(at[2]) << 8U | static_cast<uint32_t>(at[3]);
    }
    void skip(uint32_t count) { take(count); }

  private:
    bool take(uint32_t count) {
        ok_ = ok_ && count <= left();
        position_ += ok_ ? count : 0;
        return ok_;
    }

    const uint8_t *bytes_;
    uint32_t size_;
    uint32_t position_ = 0;
    bool ok_ = true;
};

/** Writes into a byte range, front to back. What does not fit is not written and sets the overrun
 * state, which stays. */
class byte_writer {
  public:
    /** The range must outlive the writer. */
    byte_writer(uint8_t *bytes, uint32_t size) : bytes_(bytes), size_(size) {}

    /** Bytes written so far. */
    [[nodiscard]] uint32_t written() const { return position_; }
    /** Whether everything fitted so far. */
    [[nodiscard]] bool ok() const { return ok_; }

    void u32(uint32_t word) {
        const uint8_t big_endian[4] = {
            static_cast<uint8_t>(word >> 24U), static_cast<uint8_t>(word >> 16U),
            static_cast<uint8_t>(word >> 8U), static_cast<uint8_t>(word)};
        bytes(big_endian, sizeof big_endian);
    }
    void bytes(const void *source, uint32_t count) {
        ok_ = ok_ && count <= size_ - position_;
        if (ok_ && count > 0) {
            std::memcpy(bytes_ + position_, source, count);
            position_ += count;
        }
    }

  private:
    uint8_t *bytes_;
    uint32_t size_;
    uint32_t position_ = 0;
    bool ok_ = true;
};
