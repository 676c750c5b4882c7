#include "subjects/configuration.h"

#include "calls/activity.h"
#include "calls/calls.h"
#include "calls/requests.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/owners.h"
#include "store/files.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/config_pushes.h"
#include "support/numbers.h"

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

using nlohmann::ordered_json;

constexpr std::string_view taken_over_setting = "config_taken_over";
constexpr std::string_view engineering_setting = "engineer_stat";

constexpr std::size_t setting_bytes_max = 64 * 1024;
constexpr int64_t settings_max = 256;

std::string md5_of(const std::string &content) {
    uni_md5_context_t context;
    uint8_t digest[MD5_DIGEST_SIZE];
    uni_md5_init(&context);
    uni_md5_update(&context, reinterpret_cast<const uint8_t *>(content.data()),
                   static_cast<uint32_t>(content.size()));
    uni_md5_final(&context, digest);
    return support::to_hex({reinterpret_cast<const char *>(digest), sizeof digest});
}

/** Size of a file; null when there is none. */
ordered_json file_size(const char *name) {
    struct stat file {};
    return stat(name, &file) == 0 ? ordered_json(file.st_size) : ordered_json();
}

/** The gateway works inside its data directory: no name of that is part of a path. */
constexpr const char *config_directory = "./";
/** Does not exist. */
constexpr std::string_view full_directory = "./disk-full/";
constexpr std::size_t file_bytes_max = 64 * 1024 * 1024;
/** As the agent makes them. */
constexpr mode_t config_mode = 0755;
constexpr const char *cloud_config_name = "cloud.config";
constexpr const char *app_config_name = "app.config";
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
    tell_event(fmt::format("{} was incomplete; the last complete one has been restored", name));
}

/**
 * Does something to both configurations.
 *
 * @return whether it could
 */
bool with_both(void (*action)(const char *name)) {
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

void configuration_init(bool keeps_files) {
    keeps_copies = keeps_files;
    config_pushes_init();
    if (keeps_copies) {
        with_both([](const char *name) {
            remove_irregular(name);
            restore(name);
        });
    }
}

void configuration_shutdown() {
    config_pushes_shutdown();
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
    expect_config_push(app_config_name);
    return config_directory;
}

std::string read_config(const std::string &path) {
    const std::size_t skipped = path.starts_with(full_directory) ? full_directory.size() : 0;
    return read_regular_file(path.substr(skipped), file_bytes_max);
}

void apply_config() {
    const std::string content = read_config(cloud_config_name);
    if (!ordered_json::accept(content)) {
        throw refused(fmt::format("{} is not taken over: it is not JSON", cloud_config_name));
    }
    const ordered_json taken = {
        {"bytes", content.size()}, {"md5", md5_of(content)}, {"posix_s", uni_time_get_posix()}};
    change_setting(taken_over_setting, taken.dump());
    tell_deed(fmt::format("pushed {}, {} bytes", cloud_config_name, content.size()));
}

void store_setting(std::string_view key, std::string_view value) {
    if (key.empty() || key.size() > name_bytes_max || value.size() > setting_bytes_max) {
        throw usage_error(fmt::format("a setting has a key of 1 to {} bytes, and at most {} bytes",
                                      name_bytes_max, setting_bytes_max));
    }
    lasting_change change;
    the_store().run("INSERT OR REPLACE INTO common(name, value) VALUES(?, ?)", key, value);
    the_store().check_limit("SELECT count(*) FROM common", settings_max, "settings");
    change.commit();
}

void forget_engineering() {
    the_store().run("DELETE FROM common WHERE name=?", engineering_setting);
}

int32_t current_channel() {
    const platform::held_mutex guard(the_gateway().shared.field_mutex);
    return the_gateway().channel;
}

void change_channel(const support::json_value &request) {
    const field &of = need_field(gateway_fields(), "channel");
    const int64_t channel = request.required(of.name).whole_number(of.lowest, of.highest);
    change_gateway_fields({{&of, channel}});
    tell_deed(fmt::format("set the channel to {}", channel));
}

void set_gateway_field(std::string_view name, const std::string &value) {
    const field &of = need_field(gateway_fields(), name);
    change_gateway_fields({{&of, value_from_text(of, value)}});
}

void add_configuration_status(ordered_json &status) {
    ordered_json &settings = status["settings"] = ordered_json::object();
    statement found = the_store().prepare("SELECT name, value FROM common");
    while (found.next()) {
        const std::string value = found.text(1);
        settings[found.text(0)] = value.substr(0, value.find('\0'));
    }
    const std::string taken = the_store().setting(taken_over_setting);
    status["config"] = {
        {cloud_config_name, file_size(cloud_config_name)},
        {app_config_name, file_size(app_config_name)},
        {"taken_over", taken.empty() ? ordered_json() : ordered_json::parse(taken)}};
}

} // namespace gateway
