// The temporary directory of one play.
#pragma once

#include <filesystem>
#include <string>

namespace replay {

/** Removed with all that is in it. */
class play_directory {
  public:
    /** @throws std::runtime_error  it can't be made */
    play_directory();
    play_directory(const play_directory &) = delete;
    play_directory &operator=(const play_directory &) = delete;
    ~play_directory();

    [[nodiscard]] const std::filesystem::path &path() const { return path_; }
    /** The first bytes of a file in it; empty when there is none. */
    [[nodiscard]] std::string begin_of(const std::string &name) const;

  private:
    std::filesystem::path path_;
};

} // namespace replay
