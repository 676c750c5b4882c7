/* Formatted text in a fixed buffer. */
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

/** Appends formatted pieces to a buffer of the caller's; always NUL-terminated. What does not fit
 * is cut off and noted. */
class bounded_text {
  public:
    /** @param size  bytes of the buffer, at least 1; it must outlive the text */
    bounded_text(char *buffer, uint32_t size) : buffer_(buffer), size_(size) { buffer_[0] = '\0'; }

    /** Appends; printf form. */
    __attribute__((format(printf, 2, 3))) void add(const char *format, ...) {
        va_list arguments;
        va_start(arguments, format);
        const int wanted = std::vsnprintf(buffer_ + length_, size_ - length_, format, arguments);
        va_end(arguments);
        const uint32_t room = size_ - length_ - 1;
        if (wanted < 0 || static_cast<uint32_t>(wanted) > room) {
            cut_ = true;
            length_ = wanted < 0 ? length_ : size_ - 1;
        } else {
            length_ += static_cast<uint32_t>(wanted);
        }
    }

    /** Appends texts as they are. For what is written in large numbers: many times as fast as a
     * format. */
    template <typename... Texts>
    void add_texts(const Texts &...texts) {
        add_pieces(std::string_view(texts)...);
    }

    /** Removes the last character if it is this one. */
    void drop_final(char last) {
        if (length_ > 0 && buffer_[length_ - 1] == last) {
            buffer_[--length_] = '\0';
        }
    }

    [[nodiscard]] const char *text() const { return buffer_; }
    /** Length without the NUL. */
    [[nodiscard]] uint32_t length() const { return length_; }
    /** Whether something did not fit. */
    [[nodiscard]] bool is_cut() const { return cut_; }

  private:
    template <typename... Pieces>
    void add_pieces(Pieces... pieces) {
        if ((pieces.size() + ...) < size_ - length_) {
            char *end = buffer_ + length_;
            ((std::memcpy(end, pieces.data(), pieces.size()), end += pieces.size()), ...);
            *end = '\0';
            length_ = static_cast<uint32_t>(end - buffer_);
        } else {
            (add("%.*s", static_cast<int>(pieces.size()), pieces.data()), ...);
        }
    }

    char *buffer_;
    uint32_t size_;
    uint32_t length_ = 0;
    bool cut_ = false;
};

/** Copies a text into a field, cut to its size, NUL-terminated. */
template <std::size_t Size>
void copy_text(char (&field)[Size], const char *text) {
    bounded_text(field, Size).add("%s", text);
}

/** A bounded_text with its own buffer, for short texts on the stack. */
template <uint32_t Size>
class local_text {
  public:
    local_text() = default;
    local_text(const local_text &) = delete;
    local_text &operator=(const local_text &) = delete;

    [[nodiscard]] bounded_text &operator*() { return text_; }
    bounded_text *operator->() { return &text_; }

  private:
    char buffer_[Size] = {};
    bounded_text text_{buffer_, Size};
};
