/* Configuration files, radio channel and log. */
#include "gateway/config.h"

#include "base/agent_log.h"
#include "base/bounded_text.h"
#include "base/gateway_fields.h"
#include "command_handlers.h"
#include "config_files.h"
#include "request_steps.h"
#include "transport/tcp_send.h"

namespace {

using platform::c_library_block;
using platform::heap_block;

constexpr uint32_t config_path_size = 161;
constexpr uint32_t log_path_size = 65;
constexpr uint32_t channel_text_size = 128;

/** Path of a configuration file, cut where it is too long. */
class config_path {
  public:
    explicit config_path(const char *name) { path_->add("%s%s", get_config_path(), name); }
    const char *text() { return path_->text(); }

  private:
    local_text<config_path_size> path_;
};

void refuse_log(const lan_request &request) {
    refuse(request.source, "read log error");
    LAN_LOG(LOG_LEVEL_TRACE, "read log error");
}

} // namespace

void lan_download_cloud_config(const lan_request &request) {
    config_path path("cloud.config");
    LAN_LOG(LOG_LEVEL_TRACE, "cloud_cfg_file:%s", path.text());
    if (__lan_download_cfg(path.text(), request.tmp_out, request.tmp_len) != 0) {
        return refuse(request.source, "download cloud config error");
    }
    if (__lan_sync_config() != 0) {
        return refuse(request.source, "sync config error");
    }
    if (reply_empty(request.source) != 0) {
        return;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "notify user the end of engineer");
    if (const auto notify = gateway_field(&gw_cntl_t::engr_end_notify)) {
        notify();
    }
}

void lan_download_app_config(const lan_request &request) {
    config_path path("app.config");
    LAN_LOG(LOG_LEVEL_TRACE, "app_cfg_file:%s", path.text());
    if (__lan_download_cfg(path.text(), request.tmp_out, request.tmp_len) != 0) {
        return refuse(request.source, "download app config error");
    }
    reply_empty(request.source);
}

void lan_read_app_config(const lan_request &request) {
    config_path path("app.config");
    LAN_LOG(LOG_LEVEL_TRACE, "app_cfg_file:%s", path.text());
    c_library_block<char> text;
    if (gw_read_file(path.text(), text.out()) != 0 || !text) {
        return refuse(request.source, "read config error");
    }
    reply_text(request.source, reply_success, text.get());
}

void lan_set_channel(const lan_request &request) {
    if (gw_set_channel(request.text(), request.tmp_len) != 0) {
        return refuse(request.source, "set channel error");
    }
    reply_empty(request.source);
}

void lan_get_channel(const lan_request &request) {
    int32_t channel = 0;
    const int32_t op_ret = gw_get_channel(&channel);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "get channel error:%d", op_ret);
        return refuse(request.source, "get channel error");
    }
    local_text<channel_text_size> text;
    text->add(R"({"channel":%d})", channel);
    LAN_LOG(LOG_LEVEL_TRACE, "result:%s", text->text());
    reply_text(request.source, reply_success, text->text());
}

void lan_upload_log(const lan_request &request) {
    char path[log_path_size] = {};
    const auto get_log_path = gateway_field(&gw_cntl_t::get_log_path);
    if (get_log_path == nullptr || get_log_path(path, log_path_size - 1) != 0) {
        return refuse_log(request);
    }
    heap_block<char> content;
    uint32_t length = 0;
    if (__read_log_file(path, content, length) != 0) {
        return refuse_log(request);
    }
    LAN_LOG(LOG_LEVEL_TRACE, "begin to send log,file len:%d", static_cast<int>(length));
    const request_source &source = request.source;
    __mlp_gw_tcp_large_send(source.socket, source.fr_num, source.fr_type, reply_success,
                            content.get(), length);
    content.reset();
    __remove_log_file(path);
}
