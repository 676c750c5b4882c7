// Frames in words for people (-v), and as JSON lines in a file (--record).
#pragma once

#include "lan_client/client.h"
#include "lan_client/traffic.h"

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/// Present time as in 2026-01-31T12:00:00.123Z.
[[nodiscard]] std::string time_text();

/// A duration as in "0.213 ms".
[[nodiscard]] std::string milliseconds_text(double time_ms);

/// One frame in one line; passwords, tokens and keys in it are hidden.
[[nodiscard]] std::string format_frame(const lan_client::traffic &seen);

/// Writes every frame as one JSON line to a file that only its owner can read.
class frame_recorder {
  public:
    /// Throws a failure when the file can't be made.
    explicit frame_recorder(const std::string &path);

    /// Throws a failure when the line can't be written; may be called on any thread.
    void write(const lan_client::traffic &seen);

  private:
    struct closer {
        void operator()(std::FILE *file) const { std::fclose(file); }
    };
    std::string path_;
    std::mutex mutex_;
    std::unique_ptr<std::FILE, closer> file_;
};

/// One sentence, such as "device a1 reports 1 = true". It quotes the network: show it safely.
[[nodiscard]] std::string format_report(const lan_client::report &report);

/// {"time", "type", "name", "number", "ret", "payload"}; "payload" is null when unreadable.
[[nodiscard]] nlohmann::json report_json(const lan_client::report &report);

} // namespace engr_app
