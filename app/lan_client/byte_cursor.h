// Bounded access to the bytes of a frame: every read and write of a frame goes through these two.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace lan_client {

/** Reads big-endian words and runs of bytes; a read that does not fit fails and takes nothing. */
class byte_reader {
  public:
    explicit byte_reader(std::string_view bytes) : rest_(bytes) {}

    [[nodiscard]] bool read(uint32_t &word) {
        std::string_view four;
        if (!take(4, four)) {
            return false;
        }
        word = 0;
        for (const char byte : four) {
            word = word << 8 | static_cast<unsigned char>(byte);
        }
        return true;
    }

    [[nodiscard]] bool take(std::size_t count, std::string_view &bytes) {
        if (count > rest_.size()) {
            return false;
        }
        bytes = rest_.substr(0, count);
        rest_.remove_prefix(count);
        return true;
    }

    [[nodiscard]] std::size_t remaining() const { return rest_.size(); }

  private:
    std::string_view rest_;
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
