#include "play/directory.h"

#include <fmt/format.h>
#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace replay {
namespace {

constexpr std::size_t begin_bytes = 2000;

} // namespace

play_directory::play_directory() {
    std::string name = std::filesystem::temp_directory_path() / "engr_replay_XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error(fmt::format("cannot make a directory for the gateway's files: {}",
                                             std::strerror(errno)));
    }
    path_ = name;
}

play_directory::~play_directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string play_directory::begin_of(const std::string &name) const {
    std::ifstream file(path_ / name, std::ios::binary);
    std::string text(begin_bytes, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
}

} // namespace replay
