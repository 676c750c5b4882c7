/* The files behind the configuration and log commands. */
#include "config_files.h"

#include "base/agent_log.h"
#include "base/bounded_text.h"
#include "base/gateway_fields.h"
#include "engr_lan_agent.h"
#include "gateway/config.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using platform::heap_block;

constexpr mode_t config_file_mode = 0755;
constexpr uint32_t setting_text_size = 10;
constexpr uint32_t remove_command_size = 256;

/** An open file, closed with its scope. */
class open_file {
  public:
    open_file(const char *path, int flags, mode_t mode = 0)
        : descriptor_(open(path, flags | O_CLOEXEC, mode)) {}
    open_file(const open_file &) = delete;
    open_file &operator=(const open_file &) = delete;
    ~open_file() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }

    explicit operator bool() const { return descriptor_ >= 0; }
    [[nodiscard]] int descriptor() const { return descriptor_; }

  private:
    int descriptor_;
};

} // namespace

int32_t __lan_download_cfg(const char *path, const uint8_t *content, uint32_t length) {
    if (path == nullptr || content == nullptr) {
        return ENGR_ERR_FAILED;
    }
    const open_file file(path, O_WRONLY | O_CREAT | O_TRUNC, config_file_mode);
    if (!file) {
        LAN_LOG(LOG_LEVEL_FAILURE, "open error:%s", std::strerror(errno));
        return ENGR_ERR_FAILED;
    }
    const ssize_t count = write(file.descriptor(), content, length);
    if (count != static_cast<ssize_t>(length)) {
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
    struct stat status {};
    if (stat(path, &status) != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "stat file error:%s", std::strerror(errno));
        return ENGR_ERR_FAILED;
    }
    const auto size = static_cast<uint64_t>(status.st_size);
    LAN_LOG(LOG_LEVEL_TRACE, "file size:%d", static_cast<int>(size));
    auto content = heap_block<char>::allocate(size + 1);
    if (!content) {
        LAN_LOG(LOG_LEVEL_FAILURE, "malloc error:%s", std::strerror(errno));
        return ENGR_ERR_NO_MEMORY;
    }
    length = static_cast<uint32_t>(size);
    std::memset(content.get(), 0, size + 1);
    const open_file file(path, O_RDONLY);
    if (!file) {
        LAN_LOG(LOG_LEVEL_FAILURE, "open error %s", std::strerror(errno));
        return ENGR_ERR_FAILED;
    }
    const ssize_t count = read(file.descriptor(), content.get(), size);
    if (count < 0 || static_cast<uint64_t>(count) != size) {
        LAN_LOG(LOG_LEVEL_FAILURE, "read file:%s error, count:%u st_size:%u", path,
                static_cast<uint32_t>(count), static_cast<uint32_t>(size));
        return ENGR_ERR_FAILED;
    }
    buffer = static_cast<heap_block<char> &&>(content);
    return ENGR_OK;
}

void __remove_log_file(const char *path) {
    local_text<remove_command_size> command;
    command->add("rm -rf %s", path);
    LAN_LOG(LOG_LEVEL_TRACE, "remove log file cmd:%s", command->text());
    // The path is the gateway's own. NOLINTNEXTLINE(cert-env33-c)
    [[maybe_unused]] const int ignored = std::system(command->text());
}
