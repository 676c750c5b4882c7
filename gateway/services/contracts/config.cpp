// gateway/config.h: configuration files, settings and the radio channel.
#include "gateway/config.h"

#include "calls/calls.h"
#include "calls/requests.h"
#include "subjects/configuration.h"

#include <cstdlib>
#include <cstring>
#include <new>

using namespace gateway;

const char *get_config_path(void) {
    return service(call("get_config_path"), {}, prepare_config_directory);
}

int32_t wd_common_write(const char *key, const uint8_t *value, uint32_t length) {
    return service(call("wd_common_write"), {{"key", key}, {"value", payload_bytes{value, length}}},
                   [&] {
                       return key == nullptr || value == nullptr ? result_argument : guarded([&] {
                           store_setting(key, {reinterpret_cast<const char *>(value), length});
                       });
                   });
}

int32_t gw_engineer_sync_default_config(void) {
    return guarded_service(call("gw_engineer_sync_default_config"), {}, apply_config);
}

int32_t gw_read_file(const char *path, char **text) {
    return guarded_service(call("gw_read_file"), {{"path", path}}, [&] {
        const std::string content = read_config(path);
        auto *block = static_cast<char *>(std::malloc(content.size() + 1));
        if (block == nullptr) {
            throw std::bad_alloc();
        }
        std::memcpy(block, content.c_str(), content.size() + 1);
        *text = block;
    });
}

int32_t gw_set_channel(const char *payload, uint32_t length) {
    return guarded_service(call("gw_set_channel"), {{"payload", payload_bytes{payload, length}}},
                           [&] { read_request(payload, length, change_channel); });
}

int32_t gw_get_channel(int32_t *channel) {
    return service(call("gw_get_channel"), {}, [&] {
        *channel = current_channel();
        return 0;
    });
}
