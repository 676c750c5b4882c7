#include "subjects/configuration.h"

#include "gateway/config.h"

#include "calls/calls.h"
#include "calls/requests.h"
#include "calls/results.h"
#include "contracts/callbacks.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "store/changes.h"
#include "store/md5_text.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/config_files.h"

#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>

namespace gateway {
namespace {

using nlohmann::ordered_json;

constexpr std::string_view taken_over_setting = "config_taken_over";
constexpr std::string_view engineering_setting = "engineer_stat";

constexpr std::size_t setting_bytes_max = 64 * 1024;
constexpr int64_t settings_max = 256;

std::string digest_of(const std::string &content) {
    uni_md5_context_t context;
    uni_md5_init(&context);
    uni_md5_update(&context, reinterpret_cast<const uint8_t *>(content.data()),
                   static_cast<uint32_t>(content.size()));
    return md5_text(context);
}

/** Takes cloud.config over, when it can be one: remembers which one it was, and when. */
int32_t take_over_config() {
    return guarded([] {
        const std::string content = read_config(cloud_config_name);
        if (!ordered_json::accept(content)) {
            throw refused(std::string(cloud_config_name) + " is not taken over: it is not JSON");
        }
        const ordered_json taken = {{"bytes", content.size()},
                                    {"md5", digest_of(content)},
                                    {"posix_s", uni_time_get_posix()}};
        lasting_change change;
        the_store().set_setting(taken_over_setting, taken.dump());
        change.commit();
    });
}

void write_common(std::string_view key, std::string_view value) {
    if (key.empty() || key.size() > name_bytes_max || value.size() > setting_bytes_max) {
        throw usage_error("a setting has a key of 1 to " + std::to_string(name_bytes_max) +
                          " bytes, and at most " + std::to_string(setting_bytes_max) + " bytes");
    }
    lasting_change change;
    the_store()
        .prepare("INSERT OR REPLACE INTO common(name, value) VALUES(?, ?)")
        .bind(1, key)
        .bind(2, value)
        .run();
    if (the_store().prepare("SELECT count(*) FROM common").run_for_number() > settings_max) {
        throw refused("there are " + std::to_string(settings_max) + " settings already");
    }
    change.commit();
}

void change_channel(const json_value &request) {
    const field &of = *find_field(gateway_fields(), "channel");
    const int64_t channel = request.required(of.name).whole_number(of.lowest, of.highest);
    lasting_change change;
    the_store().set_gateway_field(of, channel);
    change.commit();
    const platform::held_mutex guard(the_gateway().shared.field_mutex);
    write_field(&the_gateway(), of, channel);
}

/** Size of a file; null when there is none. */
ordered_json file_size(const char *name) {
    struct stat file {};
    return stat(name, &file) == 0 ? ordered_json(file.st_size) : ordered_json();
}

} // namespace

int32_t call_sync_config() {
    return service(call("sync_config"), no_arguments, take_over_config);
}

void forget_engineering() {
    the_store().prepare("DELETE FROM common WHERE name=?").bind(1, engineering_setting).run();
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

using namespace gateway;

const char *get_config_path(void) {
    return service(call("get_config_path"), no_arguments, ready_config_directory);
}

int32_t wd_common_write(const char *key, const uint8_t *value, uint32_t length) {
    return service(
        call("wd_common_write"),
        [&](call_arguments &list) { list.text("key", key).bytes("value", value, length); },
        [&] {
            if (key == nullptr || value == nullptr) {
                return result_argument;
            }
            return guarded([&] {
                write_common(key, {reinterpret_cast<const char *>(value), length});
            });
        });
}

int32_t gw_engineer_sync_default_config(void) {
    return service(call("gw_engineer_sync_default_config"), no_arguments, take_over_config);
}

int32_t gw_read_file(const char *path, char **text) {
    return service(
        call("gw_read_file"), [&](call_arguments &list) { list.text("path", path); },
        [&] {
            return guarded([&] {
                const std::string content = read_config(path);
                auto *block = static_cast<char *>(std::malloc(content.size() + 1));
                if (block == nullptr) {
                    throw std::bad_alloc();
                }
                std::memcpy(block, content.c_str(), content.size() + 1);
                *text = block;
            });
        });
}

int32_t gw_set_channel(const char *payload, uint32_t length) {
    return service(
        call("gw_set_channel"),
        [&](call_arguments &list) { list.bytes("payload", payload, length); },
        [&] { return guarded([&] { read_request(payload, length, change_channel); }); });
}

int32_t gw_get_channel(int32_t *channel) {
    return service(call("gw_get_channel"), no_arguments, [&] {
        const platform::held_mutex guard(the_gateway().shared.field_mutex);
        *channel = the_gateway().channel;
        return 0;
    });
}
