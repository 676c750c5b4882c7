#include "log_output.h"

#include "gateway_services/error.h"
#include "happenings.h"
#include "linux_port/port.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
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

/**
 * The last bytes of a file, at most so many.
 *
 * @throws gateway::refused
 */
std::string end_of_file(const char *name, std::size_t bytes_max) {
    std::ifstream file(name, std::ios::binary | std::ios::ate);
    const auto size = static_cast<std::size_t>(std::max<std::streamoff>(file.tellg(), 0));
    std::string bytes(std::min(size, bytes_max), '\0');
    file.seekg(-static_cast<std::streamoff>(bytes.size()), std::ios::end);
    if (!file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) {
        throw gateway::refused(std::string(name) + " cannot be read");
    }
    return bytes;
}

} // namespace

void open_log(int level, bool is_shown) {
    // The port hands over one finished line at a time, so the logger neither locks nor formats.
    spdlog::file_event_handlers private_files;
    private_files.after_open = [](const spdlog::filename_t &, std::FILE *opened) {
        fchmod(fileno(opened), 0600);
    };
    auto file = std::make_shared<spdlog::sinks::rotating_file_sink_st>(
        log_file_name, file_bytes_max, old_files_max, false, private_files);
    file->set_pattern("%v");
    const auto logger = std::make_shared<spdlog::logger>("gateway", file);
    logger->flush_on(spdlog::level::trace);
    linux_port::set_log_level(level);
    linux_port::set_log_sink([logger, is_shown](int line_level, std::string_view line) {
        tell_log(line_level, line);
        if (is_shown) {
            linux_port::write_standard_error(line);
        }
        const std::lock_guard guard(files_mutex);
        logger->info(line);
    });
}

std::string newest_log(std::size_t bytes_max) {
    const std::lock_guard guard(files_mutex);
    std::string newest = end_of_file(log_file_name, bytes_max);
    if (newest.size() < bytes_max && std::filesystem::exists(old_log_file_name)) {
        newest.insert(0, end_of_file(old_log_file_name, bytes_max - newest.size()));
    }
    return newest;
}

void close_log() {
    linux_port::set_log_sink({});
}

} // namespace gatewayd
