#include "subjects/log_snapshots.h"

#include "calls/activity.h"
#include "gateway_services/error.h"
#include "store/files.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <filesystem>

namespace gateway {
namespace {

constexpr std::string_view snapshot_begin = "upload-";
constexpr std::string_view snapshot_end = ".log";

std::function<std::string(std::size_t bytes_max)> newest_log;
/** Of the last snapshot; the agent asks for one at a time. */
uint32_t snapshot_number;

/** Holds nothing that means something to a shell. */
std::string snapshot_name(uint32_t number) {
    return fmt::format("{}{:04}{}", snapshot_begin, number, snapshot_end);
}

bool is_snapshot(std::string_view name) {
    if (!name.starts_with(snapshot_begin) || !name.ends_with(snapshot_end) ||
        name.size() <= snapshot_begin.size() + snapshot_end.size()) {
        return false;
    }
    name.remove_prefix(snapshot_begin.size());
    name.remove_suffix(snapshot_end.size());
    return name.find_first_not_of("0123456789") == std::string_view::npos;
}

/** The newest lines of the log. */
std::string newest_lines() {
    // One byte more than is handed out shows whether a cut at the limit is the end of a line.
    std::string log = newest_log(log_upload_bytes_max + 1);
    if (log.size() > log_upload_bytes_max) {
        const std::size_t end_of_cut_line = log.find('\n');
        log.erase(0, end_of_cut_line == std::string::npos ? 1 : end_of_cut_line + 1);
    }
    return log;
}

} // namespace

void log_snapshots_init(std::function<std::string(std::size_t bytes_max)> newest) {
    newest_log = std::move(newest);
    snapshot_number = 0;
    if (!newest_log) {
        return;
    }
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(".", ignored)) {
        if (is_snapshot(entry.path().filename().native())) {
            unlink(entry.path().c_str());
        }
    }
}

void log_snapshots_shutdown() {
    newest_log = nullptr;
}

void add_log_status(nlohmann::ordered_json &status) {
    status["log"] = {{"upload_bytes_max", log_upload_bytes_max}};
}

void make_log_snapshot(char *path, std::size_t size) {
    if (!newest_log) {
        throw refused("there is no log to upload");
    }
    unlink(snapshot_name(snapshot_number).c_str()); // if it was not taken, it never will be
    const std::string name = snapshot_name(++snapshot_number);
    write_private_file(name, newest_lines());
    if (name.size() >= size) {
        throw refused("the path of the log does not fit");
    }
    name.copy(path, name.size());
    path[name.size()] = '\0';
    tell_deed("fetches the log");
}

} // namespace gateway
