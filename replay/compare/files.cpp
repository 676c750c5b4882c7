#include "compare/files.h"

#include "session/lines.h"
#include "session/reader.h"
#include "support/input_error.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <istream>
#include <stdexcept>

namespace replay {

recording read_recording(const std::string &file) {
    session::reader reader(file);
    recording read{.begin = reader.start(), .events = {}};
    while (auto each = reader.next()) {
        if (read.events.size() == events_max) {
            throw support::input_error(
                fmt::format("{}: has more than {} events", file, events_max));
        }
        read.events.push_back(std::move(*each));
    }
    return read;
}

std::string text_of(const recording &of) {
    std::string text = session::line_of(of.begin) + "\n";
    for (const session::event &each : of.events) {
        text += session::line_of(each) + "\n";
    }
    return text;
}

void write_file(const std::string &name, const std::string &content) {
    std::FILE *file = name == "-" ? stdout : std::fopen(name.c_str(), "wb");
    const bool is_written =
        file != nullptr && std::fwrite(content.data(), 1, content.size(), file) == content.size() &&
        std::fflush(file) == 0;
    const int error = errno;
    if (file != nullptr && file != stdout) {
        std::fclose(file);
    }
    if (!is_written) {
        throw std::runtime_error(fmt::format("{} cannot be written: {}",
                                             name == "-" ? "standard output" : name,
                                             std::strerror(error)));
    }
}

} // namespace replay
