#include "subjects/log_snapshots.h"

#include "calls/calls.h"
#include "contracts/callbacks.h"
#include "gateway_services/error.h"
#include "store/changes.h"
#include "store/files.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace gateway {
namespace {

constexpr std::string_view snapshot_begin = "upload-";
constexpr std::string_view snapshot_end = ".log";

std::function<std::string(std::size_t bytes_max)> newest_log;
/** Of the last snapshot; the agent asks for one at a time. */
uint32_t snapshot_number;

std::string snapshot_name(uint32_t number) {
    char name[32];
    std::snprintf(name, sizeof name, "upload-%04u.log", number);
    return name;
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

/**
 * Makes a new snapshot. One that was not taken is of no more use.
 *
 * @return its name, which means nothing to a shell wherever the gateway runs
 */
std::string make_snapshot() {
    if (!newest_log) {
        throw refused("there is no log to upload");
    }
    unlink(snapshot_name(snapshot_number).c_str());
    std::string name = snapshot_name(++snapshot_number);
    write_private_file(name, newest_lines());
    return name;
}

} // namespace

void open_log_snapshots(std::function<std::string(std::size_t bytes_max)> newest) {
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

void close_log_snapshots() {
    newest_log = nullptr;
}

void add_log_status(nlohmann::ordered_json &status) {
    status["log"] = {{"upload_bytes_max", log_upload_bytes_max}};
}

int32_t call_get_log_path(char *path, uint32_t size) {
    return service(
        call("get_log_path"), [&](call_arguments &list) { list.number("size", size); },
        [&] {
            return guarded([&] {
                const std::string name = make_snapshot();
                if (name.size() >= size) {
                    throw refused("the path of the log does not fit");
                }
                name.copy(path, name.size());
                path[name.size()] = '\0';
            });
        });
}

} // namespace gateway
