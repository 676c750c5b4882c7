/* The files behind the configuration and log commands. */
#include "config_files.h"

#include "base/agent_log.h"
#include "base/bounded_text.h"
#include "base/gateway_fields.h"
#include "engr_lan_agent.h"
#include "gateway/config.h"
#include "platform/file.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace {

using platform::heap_block;

constexpr uint32_t setting_text_size = 10;
constexpr uint64_t log_bytes_max = INT32_MAX - 1; // what one read and one frame can take

/** An open file, closed with its scope. */
class open_file {
  public:
    /** @param handle  result of engr_file_open or engr_file_create */
    explicit open_file(int32_t handle) : handle_(handle) {}
    open_file(const open_file &) = delete;
    open_file &operator=(const open_file &) = delete;
    ~open_file() {
        if (handle_ >= 0) {
            engr_file_close(handle_);
        }
    }

    explicit operator bool() const { return handle_ >= 0; }
    [[nodiscard]] int32_t handle() const { return handle_; }

  private:
    int32_t handle_;
};

} // namespace

int32_t __lan_download_cfg(const char *path, const uint8_t *content, uint32_t length) {
    if (path == nullptr || content == nullptr) {
        return ENGR_ERR_FAILED;
    }
    const open_file file(engr_file_create(path));
    if (!file) {
        LAN_LOG(LOG_LEVEL_FAILURE, "open error:%s", engr_file_error());
        return ENGR_ERR_FAILED;
    }
    const int32_t count = engr_file_write(file.handle(), content, length);
    if (count < 0 || static_cast<uint32_t>(count) != length) {
        LAN_LOG(LOG_LEVEL_FAILURE, "write count:%u len:%u", static_cast<uint32_t>(count), length);
        return ENGR_ERR_FAILED;
    }
    return ENGR_OK;
}

int32_t __lan_sync_config() {
    local_text<setting_text_size> value;
    value->add("%d", 1);
    const int32_t op_ret = wd_common_write(
        "engineer_stat", reinterpret_cast<const uint8_t *>(value->text()), value->length() + 1);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "wd_common_write ret:%d", op_ret);
        return op_ret;
    }
    if (const auto sync_config = gateway_field(&gw_cntl_t::sync_config)) {
        return sync_config();
    }
    LAN_LOG(LOG_LEVEL_TRACE, "user default way to sync config file");
    return gw_engineer_sync_default_config();
}

int32_t __read_log_file(const char *path, heap_block<char> &buffer, uint32_t &length) {
    if (path == nullptr) {
        return ENGR_ERR_ARGUMENT;
    }
    uint64_t size = 0;
    if (engr_file_size(path, &size) != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "stat file error:%s", engr_file_error());
        return ENGR_ERR_FAILED;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "file size:%d", static_cast<int>(size));
    heap_block<char> content;
    if (size <= log_bytes_max) {
        content = heap_block<char>::allocate(static_cast<size_t>(size) + 1);
    }
    if (!content) {
        LAN_LOG(LOG_LEVEL_FAILURE, "malloc error:%s", std::strerror(errno));
        return ENGR_ERR_NO_MEMORY;
    }
    length = static_cast<uint32_t>(size);
    std::memset(content.get(), 0, size_t{length} + 1);
    const open_file file(engr_file_open(path));
    if (!file) {
        LAN_LOG(LOG_LEVEL_FAILURE, "open error %s", engr_file_error());
        return ENGR_ERR_FAILED;
    }
    const int32_t count = engr_file_read(file.handle(), content.get(), length);
    if (count < 0 || static_cast<uint32_t>(count) != length) {
        LAN_LOG(LOG_LEVEL_FAILURE, "read file:%s error, count:%u st_size:%u", path,
                static_cast<uint32_t>(count), length);
        return ENGR_ERR_FAILED;
    }
    buffer = std::move(content);
    return ENGR_OK;
}

void __remove_log_file(const char *path) {
    LAN_LOG(LOG_LEVEL_TRACE, "remove log file cmd:rm -rf %s", path);
    [[maybe_unused]] const int32_t ignored = engr_file_remove(path);
}
