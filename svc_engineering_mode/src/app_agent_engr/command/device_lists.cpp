/* The device list, and the lists of online and offline devices. */
#include "base/agent_log.h"
#include "base/bounded_text.h"
#include "base/gateway_fields.h"
#include "command_handlers.h"
#include "gateway/device.h"
#include "gateway/gateway.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <strings.h>
#include <utility>

namespace {

using platform::heap_block;
using platform::held_mutex;

/** Bytes for one entry of the device list. */
constexpr uint32_t dev_list_entry_size = 80;
/** Bytes for one entry of the online and offline lists. */
constexpr uint32_t line_stat_entry_size = 30;
constexpr uint32_t list_spare_size = 30;
/** With less room than this left in one of these lists the request is refused. */
constexpr uint32_t line_stat_margin = 26;
/** Bytes of the answer besides the online and the offline list. */
constexpr uint32_t line_stat_frame_size = 128;

uint32_t count_devices(gw_cntl_t &gateway) {
    return std::atomic_ref<uint32_t>(gateway.dev_count).load(std::memory_order_relaxed);
}

/** A JSON array of device ids that is being written into a buffer: "[", then entries that each end
 * with a comma. */
class id_list {
  public:
    explicit id_list(uint32_t size) : buffer_(heap_block<char>::allocate(size)), size_(size) {}

    explicit operator bool() const { return static_cast<bool>(buffer_); }
    void begin() { buffer_.get()[count_++] = '['; }
    [[nodiscard]] uint32_t count() const { return count_; }
    [[nodiscard]] bool has_margin() const { return size_ - count_ >= line_stat_margin; }
    /** Appends one id and keeps room for the NUL. Returns false, and writes nothing, when it does
     * not fit. */
    [[nodiscard]] bool add(const char *id) {
        const auto length = static_cast<uint32_t>(std::strlen(id)) + 3;
        if (size_ - count_ <= length) {
            return false;
        }
        std::snprintf(buffer_.get() + count_, size_ - count_, "\"%s\",", id);
        count_ += length;
        return true;
    }
    /** Turns the last comma into the closing bracket, or closes the empty list. */
    void end() {
        count_ += count_ == 1 ? 1 : 0;
        buffer_.get()[count_ - 1] = ']';
        buffer_.get()[count_] = '\0';
    }
    /** Whether it has entries; after end. */
    [[nodiscard]] bool is_present() const { return count_ > 2; }
    [[nodiscard]] const char *text() const { return buffer_.get(); }

  private:
    heap_block<char> buffer_;
    uint32_t size_;
    uint32_t count_ = 0;
};

/** Fills the two lists with the devices. Returns false when there is no room; the app has its
 * answer then. */
bool fill_line_lists(const lan_request &request, uint32_t size, id_list &online, id_list &offline) {
    const gateway_text gw_id(&gw_cntl_t::gw_id);
    gw_cntl_t &gateway = *engr_get_gw_cntl();
    const held_mutex hold(gateway.dev_mutex);
    for (dev_cntl_t *device = gateway.dev_list; device != nullptr; device = device->next) {
        const bool is_listed = strcasecmp(device->dev_id, gw_id.text()) != 0 &&
                               device->excluded == 0 && device->state == DEV_STATE_BOUND;
        bool has_room = online.has_margin() && offline.has_margin();
        if (has_room && is_listed) {
            has_room = (device->online == 1 ? online : offline).add(device->dev_id);
        }
        if (!has_room) {
            LAN_LOG(LOG_LEVEL_FAILURE, "length:%d,ol_size:%d,off_size:%d", static_cast<int>(size),
                    static_cast<int>(online.count()), static_cast<int>(offline.count()));
            refuse(request.source, "length not enough");
            return false;
        }
        if (is_listed) {
            device->line_stat_sent = 1;
        }
    }
    return true;
}

/** Sends an object with those lists that have entries. */
void send_line_lists(const lan_request &request, const id_list &online, const id_list &offline) {
    LAN_LOG(LOG_LEVEL_TRACE, "on:%s off:%s", online.text(), offline.text());
    const auto size =
        static_cast<uint32_t>(std::strlen(online.text()) + std::strlen(offline.text())) +
        line_stat_frame_size;
    heap_block<char> send_data = heap_block<char>::allocate(size);
    if (!send_data) {
        LAN_LOG(LOG_LEVEL_FAILURE, "malloc send_data buffer fails");
        refuse(request.source, "malloc send_data buffer fails");
        return;
    }
    bounded_text text(send_data.get(), size);
    text.add("{");
    if (online.is_present()) {
        text.add("\"online\":%s%s", online.text(), offline.is_present() ? "," : "");
    }
    if (offline.is_present()) {
        text.add("\"offline\":%s", offline.text());
    }
    text.add("}");
    LAN_LOG(LOG_LEVEL_TRACE, "data:%s", text.text());
    reply_text(request.source, reply_success, std::move(send_data));
}

/** Writes the listed devices; a text that does not fit is cut. */
void write_dev_list(bounded_text &text) {
    gw_cntl_t &gateway = *engr_get_gw_cntl();
    const held_mutex hold(gateway.dev_mutex);
    for (const dev_cntl_t *device = gateway.dev_list; device != nullptr; device = device->next) {
        if (device->excluded != 0 || device->state == DEV_STATE_FREE) {
            continue;
        }
        text.add_texts(R"({"cid":")", device->dev_id, R"(","pid":")", device->pid, R"("},)");
    }
    text.drop_final(',');
}

} // namespace

void __lan_get_dev_line_stat(const lan_request &request) {
    const uint32_t size =
        count_devices(*engr_get_gw_cntl()) * line_stat_entry_size + list_spare_size;
    id_list online(size);
    if (!online) {
        LAN_LOG(LOG_LEVEL_FAILURE, "malloc ol_buf buffer fails");
        refuse(request.source, "malloc ol_buf buffer fails");
        return;
    }
    id_list offline(size);
    if (!offline) {
        LAN_LOG(LOG_LEVEL_FAILURE, "malloc off_buf buffer fails");
        refuse(request.source, "malloc off_buf buffer fails");
        return;
    }
    online.begin();
    offline.begin();
    if (!fill_line_lists(request, size, online, offline)) {
        return;
    }
    online.end();
    offline.end();
    if (!online.is_present() && !offline.is_present()) {
        LAN_LOG(LOG_LEVEL_FAILURE, "online_dev or offline_dev is null");
        refuse(request.source, "online_dev or offline_dev is null");
        return;
    }
    send_line_lists(request, online, offline);
}

void __lan_get_dev_list(const lan_request &request) {
    const uint32_t size =
        count_devices(*engr_get_gw_cntl()) * dev_list_entry_size + list_spare_size;
    heap_block<char> buffer = heap_block<char>::allocate(size);
    if (!buffer) {
        refuse(request.source, "malloc error");
        return;
    }
    bounded_text text(buffer.get(), size);
    text.add_texts(R"({"products":[)");
    write_dev_list(text);
    text.add_texts("]}");
    LAN_LOG(LOG_LEVEL_TRACE, "data:%s", text.text());
    reply_text(request.source, reply_success, std::move(buffer));
}
