#include "log_output.h"

#include "linux_port/port.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include <fstream>
#include <memory>
#include <mutex>

namespace gatewayd {
namespace {

constexpr std::size_t file_bytes_max = 8 * 1024 * 1024;
constexpr std::size_t old_files_max = 3;
/** The file that was put aside last. */
constexpr const char *old_log_file_name = "engr_gatewayd.1.log";

std::mutex files_mutex; // held while a line is written, and while the files are copied

} // namespace

void open_log(int level) {
    // The port hands over one finished line at a time, so the logger neither locks nor formats.
    auto file = std::make_shared<spdlog::sinks::rotating_file_sink_st>(
        log_file_name, file_bytes_max, old_files_max);
    file->set_pattern("%v");
    const auto logger = std::make_shared<spdlog::logger>("gateway", file);
    logger->flush_on(spdlog::level::trace);
    linux_port::set_log_level(level);
    linux_port::set_log_sink([logger](int, std::string_view line) {
        linux_port::write_standard_error(line);
        const std::lock_guard guard(files_mutex);
        logger->info(line);
    });
}

bool snapshot_log(const std::string &name) {
    const std::lock_guard guard(files_mutex);
    std::ofstream snapshot(name, std::ios::binary);
    for (const char *part : {old_log_file_name, log_file_name}) {
        std::ifstream file(part, std::ios::binary);
        // Copying an empty file would count as a failure.
        if (file && file.peek() != std::ifstream::traits_type::eof())
            snapshot << file.rdbuf();
    }
    return static_cast<bool>(snapshot.flush());
}

void close_log() {
    linux_port::set_log_sink({});
}

} // namespace gatewayd
