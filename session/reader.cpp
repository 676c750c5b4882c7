#include "session/reader.h"

#include "session/lines.h"
#include "support/input_error.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include <fmt/format.h>

namespace session {
namespace {

std::unique_ptr<std::istream> open_session_file(const std::string &path) {
    auto file = std::make_unique<std::ifstream>(path, std::ios::binary);
    if (!*file) {
        throw support::input_error(
            fmt::format("{}: cannot be read: {}", path, std::strerror(errno)));
    }
    return file;
}

} // namespace

reader::reader(const std::string &path) : reader(open_session_file(path), path) {}

reader::reader(std::unique_ptr<std::istream> from, std::string name)
    : name_(std::move(name)), file_(std::move(from)) {
    const std::optional<std::string> line = next_line();
    if (!line || line->find("\"session\"") == std::string::npos) {
        throw support::input_error(
            name_ + ": is no session file: " +
            (line ? "its first line does not say so" : "it has no whole line"));
    }
    start_ = read_header(*line, place());
}

std::optional<event> reader::next() {
    const std::optional<std::string> line = next_line();
    if (!line) {
        return std::nullopt;
    }
    event read = read_event(*line, place());
    check(read);
    return read;
}

std::string reader::place() const {
    return fmt::format("{}: line {}", name_, line_number_);
}

std::optional<std::string> reader::next_line() {
    std::string line;
    for (int byte = file_->get(); byte != std::istream::traits_type::eof(); byte = file_->get()) {
        if (byte == '\n') {
            ++line_number_;
            return line;
        }
        line += static_cast<char>(byte);
        if (line.size() > line_bytes_max) {
            ++line_number_;
            throw support::input_error(
                fmt::format("{}: is longer than {} bytes", place(), line_bytes_max));
        }
    }
    if (file_->bad()) {
        throw support::input_error(name_ + ": cannot be read");
    }
    breaks_off_ = !line.empty();
    return std::nullopt;
}

void reader::check(const event &read) {
    const auto refuse = [this](const std::string &what) {
        throw support::input_error(place() + ": " + what);
    };
    if (has_ended_) {
        refuse("follows the end of the session");
    }
    if (read.at_us < last_at_us_) {
        refuse(fmt::format("at: is {}, but the event before was at {}", read.at_us, last_at_us_));
    }
    last_at_us_ = read.at_us;
    const uint32_t client = client_of(read);
    if (std::holds_alternative<connected>(read.what)) {
        if (client <= last_client_) {
            refuse(fmt::format("client: is {}; clients are counted, and {} was there before",
                               client, last_client_));
        }
        last_client_ = client;
        open_clients_.insert(client);
    } else if (client != 0 && !has_gap_ && open_clients_.count(client) == 0) {
        refuse(fmt::format("client: {} is not connected here", client));
    }
    if (std::holds_alternative<closed>(read.what)) {
        open_clients_.erase(client);
    }
    has_gap_ = has_gap_ || std::holds_alternative<lost>(read.what);
    has_ended_ = std::holds_alternative<ended>(read.what);
}

} // namespace session
