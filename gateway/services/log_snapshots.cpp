#include "log_snapshots.h"

#include "callbacks.h"
#include "calls.h"
#include "changes.h"
#include "gateway_services/error.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace gateway {
namespace {

constexpr std::string_view snapshot_begin = "upload-";
constexpr std::string_view snapshot_end = ".log";

std::function<bool(const std::string &name)> write_snapshot;
/** Of the last snapshot; the agent asks for one at a time. */
uint32_t snapshot_number;

std::string snapshot_name(uint32_t number) {
    char name[32];
    std::snprintf(name, sizeof name, "upload-%04u.log", number);
    return name;
}

bool is_snapshot(std::string_view name) {
    if (!name.starts_with(snapshot_begin) || !name.ends_with(snapshot_end) ||
        name.size() <= snapshot_begin.size() + snapshot_end.size())
        return false;
    name.remove_prefix(snapshot_begin.size());
    name.remove_suffix(snapshot_end.size());
    return name.find_first_not_of("0123456789") == std::string_view::npos;
}

/** Makes a new snapshot. One that was not taken is of no more use. @return its name, which means
 * nothing to a shell wherever the gateway runs */
std::string make_snapshot() {
    if (!write_snapshot)
        throw refused("there is no log to upload");
    unlink(snapshot_name(snapshot_number).c_str());
    std::string name = snapshot_name(++snapshot_number);
    if (!write_snapshot(name)) {
        unlink(name.c_str());
        throw refused("the log cannot be copied to " + name);
    }
    return name;
}

} // namespace

void open_log_snapshots(std::function<bool(const std::string &name)> write) {
    write_snapshot = std::move(write);
    snapshot_number = 0;
    if (!write_snapshot)
        return;
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(".", ignored)) {
        if (is_snapshot(entry.path().filename().native()))
            unlink(entry.path().c_str());
    }
}

void close_log_snapshots() {
    write_snapshot = nullptr;
}

int32_t call_get_log_path(char *path, uint32_t size) {
    return service(
        call("get_log_path"), [&](call_arguments &list) { list.number("size", size); },
        [&] {
            return guarded([&] {
                const std::string name = make_snapshot();
                if (name.size() >= size)
                    throw refused("the path of the log does not fit");
                name.copy(path, name.size());
                path[name.size()] = '\0';
            });
        });
}

} // namespace gateway
