#include "subjects/config_files.h"

#include "calls/log.h"
#include "gateway_services/error.h"
#include "store/files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

namespace gateway {
namespace {

/** The gateway works inside its data directory: no name of that is part of a path. */
constexpr const char *config_directory = "./";
/** Does not exist. */
constexpr std::string_view full_directory = "./disk-full/";
constexpr std::size_t file_bytes_max = 64 * 1024 * 1024;
/** As the agent makes them. */
constexpr mode_t config_mode = 0755;
constexpr const char *config_names[] = {cloud_config_name, app_config_name};

bool keeps_copies = false;

std::string copy_name(const char *name) {
    return std::string(name) + ".last";
}

bool exists(const std::string &name) {
    struct stat status {};
    return lstat(name.c_str(), &status) == 0;
}

/** Whether a content is complete: a JSON object or array. */
bool is_whole(std::string_view content) {
    const std::size_t begin = content.find_first_not_of(" \t\r\n");
    return begin != std::string_view::npos && (content[begin] == '{' || content[begin] == '[') &&
           nlohmann::json::accept(content);
}

bool is_whole_file(const std::string &name) {
    return exists(name) && is_whole(read_regular_file(name, file_bytes_max));
}

/** Removes what is neither a file nor a directory: a pipe would block the agent for ever, and a
 * link would make it write elsewhere. */
void remove_irregular(const char *name) {
    struct stat status {};
    if (lstat(name, &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode) &&
        unlink(name) == 0) {
        GATEWAY_LOG(LOG_LEVEL_FAILURE, "removed %s: it is not a regular file", name);
    }
}

/**
 * Keeps a copy of a configuration that is whole.
 *
 * @throws refused
 */
void keep_whole(const char *name) {
    struct stat status {};
    if (lstat(name, &status) != 0 || !S_ISREG(status.st_mode)) {
        return;
    }
    const std::string content = read_regular_file(name, file_bytes_max);
    const std::string copy = copy_name(name);
    if (is_whole(content) &&
        !(exists(copy) && read_regular_file(copy, file_bytes_max) == content)) {
        replace_private_file(copy, content);
    }
}

/** Restores the copy, unless the configuration is complete. A rename needs no room on the disk. */
void restore(const char *name) {
    const std::string copy = copy_name(name);
    if (is_whole_file(name) || !is_whole_file(copy)) {
        return;
    }
    if (chmod(copy.c_str(), config_mode) != 0 || rename(copy.c_str(), name) != 0) {
        throw refused(fmt::format("{} cannot replace {}: {}", copy, name, std::strerror(errno)));
    }
    GATEWAY_LOG(LOG_LEVEL_WARNING, "%s was incomplete; the last complete one has been restored",
                name);
}

/**
 * Does something to both configurations.
 *
 * @return whether it could
 */
template <typename Action>
bool with_both(Action action) {
    try {
        for (const char *name : config_names) {
            action(name);
        }
        return true;
    } catch (const refused &error) {
        GATEWAY_LOG(LOG_LEVEL_FAILURE, "%s", error.what());
        return false;
    }
}

} // namespace

void config_files_init(bool keeps_files) {
    keeps_copies = keeps_files;
    if (keeps_copies) {
        with_both([](const char *name) {
            remove_irregular(name);
            restore(name);
        });
    }
}

void config_files_shutdown() {
    if (!std::exchange(keeps_copies, false)) {
        return;
    }
    with_both([](const char *name) {
        // No push is under way, so the file is as the app pushed it, unless the disk was full.
        if (is_whole_file(name)) {
            keep_whole(name);
        } else if (disk_room() >= config_bytes_max) {
            unlink(copy_name(name).c_str());
        }
    });
}

const char *prepare_config_directory() {
    for (const char *name : config_names) {
        remove_irregular(name);
    }
    if (!keeps_copies) {
        return config_directory;
    }
    if (!with_both(keep_whole)) {
        return full_directory.data();
    }
    if (disk_room() < config_bytes_max) {
        GATEWAY_LOG(LOG_LEVEL_FAILURE, "the disk has no room for a configuration");
        return full_directory.data();
    }
    return config_directory;
}

std::string read_config(const std::string &path) {
    if (path.starts_with(full_directory)) {
        return read_regular_file(path.substr(full_directory.size()), file_bytes_max);
    }
    return read_regular_file(path, file_bytes_max);
}

} // namespace gateway
