#include "subjects/configuration.h"

#include "calls/requests.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/owners.h"
#include "store/changes.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/config_files.h"
#include "support/numbers.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

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

} // namespace

void apply_config() {
    const std::string content = read_config(cloud_config_name);
    if (!ordered_json::accept(content)) {
        throw refused(fmt::format("{} is not taken over: it is not JSON", cloud_config_name));
    }
    const ordered_json taken = {
        {"bytes", content.size()}, {"md5", md5_of(content)}, {"posix_s", uni_time_get_posix()}};
    lasting_change change;
    the_store().set_setting(taken_over_setting, taken.dump());
    change.commit();
}

void store_setting(std::string_view key, std::string_view value) {
    if (key.empty() || key.size() > name_bytes_max || value.size() > setting_bytes_max) {
        throw usage_error(fmt::format("a setting has a key of 1 to {} bytes, and at most {} bytes",
                                      name_bytes_max, setting_bytes_max));
    }
    lasting_change change;
    the_store()
        .prepare("INSERT OR REPLACE INTO common(name, value) VALUES(?, ?)")
        .bind(1, key)
        .bind(2, value)
        .run();
    if (the_store().prepare("SELECT count(*) FROM common").run_for_number() > settings_max) {
        throw refused(fmt::format("there are {} settings already", settings_max));
    }
    change.commit();
}

void forget_engineering() {
    the_store().prepare("DELETE FROM common WHERE name=?").bind(1, engineering_setting).run();
}

int32_t current_channel() {
    const platform::held_mutex guard(the_gateway().shared.field_mutex);
    return the_gateway().channel;
}

void change_channel(const support::json_value &request) {
    const field &of = need_field(gateway_fields(), "channel");
    const int64_t channel = request.required(of.name).whole_number(of.lowest, of.highest);
    change_gateway_fields({{&of, channel}});
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
