// A firmware image in a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include <sys/stat.h>

namespace engr_app {

/** Read piece by piece and never held whole. Its functions may be called on any threads at once. */
class firmware_image {
  public:
    /**
     * Opens the file and reads it once, for its MD5.
     *
     * @throws failure of wrong usage when it can't be read, is not a regular file, is empty or too
     * large
     */
    explicit firmware_image(std::string path);

    [[nodiscard]] const std::string &path() const { return path_; }
    [[nodiscard]] uint64_t size() const { return static_cast<uint64_t>(opened_.st_size); }
    [[nodiscard]] const std::string &md5() const { return md5_; } /**< 32 lower-case hex digits */

    /**
     * Appends `count` bytes from `offset` on, which lie within the image.
     *
     * @throws failure when the file has changed since it was opened
     */
    void append_to(std::string &bytes, uint64_t offset, std::size_t count) const;

  private:
    struct open_file {
        explicit open_file(const std::string &path);
        ~open_file();
        open_file(const open_file &) = delete;
        open_file &operator=(const open_file &) = delete;
        int descriptor;
    };

    void check_size() const;
    void require_unchanged() const;

    std::string path_;
    open_file file_;
    struct stat opened_ {};
    std::string md5_;
};

} // namespace engr_app
