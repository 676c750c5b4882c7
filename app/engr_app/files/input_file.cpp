// Reading of whole texts.
#include "files/input_file.h"

#include "base/failure.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

namespace engr_app {
namespace {

std::string all_of(std::istream &stream, const std::string &name) {
    std::string text;
    for (char block[64 * 1024]; stream.read(block, sizeof block), stream.gcount() > 0;) {
        text.append(block, static_cast<std::size_t>(stream.gcount()));
        if (text.size() > max_input_bytes) {
            throw failure("input", name + " is longer than 64 MiB", exit_wrong_usage);
        }
    }
    if (stream.bad()) {
        throw failure("input", name + " can't be read: " + std::strerror(errno), exit_wrong_usage);
    }
    return text;
}

} // namespace

const std::string &standard_input() {
    static const std::string text = all_of(std::cin, "standard input");
    return text;
}

std::string file_text(const std::string &path) {
    if (path == "-") {
        return standard_input();
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw failure("input", "can't read " + path + ": " + std::strerror(errno),
                      exit_wrong_usage);
    }
    return all_of(file, path);
}

} // namespace engr_app
