// Bounded access to the bytes of a frame: every read and write of a frame goes through these two.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace lan_client {

/**
 * Reads big-endian words and runs of bytes. A read that does not fit takes nothing, and neither
 * does one that follows it.
 */
class byte_reader {
  public:
    explicit byte_reader(std::string_view bytes) : rest_(bytes) {}

    /** @return 0 when it does not fit */
    uint32_t word() {
        uint32_t value = 0;
        for (const char byte : take(4)) {
            value = value << 8 | static_cast<unsigned char>(byte);
        }
        return value;
    }

    /** @return no bytes when they do not fit */
    std::string_view take(std::size_t count) {
        failed_ = failed_ || count > rest_.size();
        const std::string_view taken = rest_.substr(0, failed_ ? 0 : count);
        rest_.remove_prefix(taken.size());
        return taken;
    }

    /** @return whether a read did not fit */
    [[nodiscard]] bool has_failed() const { return failed_; }
    [[nodiscard]] std::size_t remaining() const { return rest_.size(); }

  private:
    std::string_view rest_;
    bool failed_ = false;
};

/** Appends big-endian words and runs of bytes to a string that grows as needed. */
class byte_writer {
  public:
    explicit byte_writer(std::string &out) : out_(out) {}

    void write(uint32_t word) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            out_.push_back(static_cast<char>(word >> shift & 0xFF));
        }
    }

    void append(std::string_view bytes) { out_.append(bytes); }

  private:
    std::string &out_;
};

} // namespace lan_client
