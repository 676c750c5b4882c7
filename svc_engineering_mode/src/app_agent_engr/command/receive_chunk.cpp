/* Chunks of a firmware image: from the app to the upgrade service. */
#include "base/agent_log.h"
#include "base/byte_cursor.h"
#include "command_handlers.h"
#include "upgrade/chunk_request.h"
#include "upgrade/upgrade_progress.h"
#include "upgrade/upgrade_state.h"
#include "upgrade/upgrade_worker.h"

#include <algorithm>
#include <cstring>

namespace {

using platform::heap_block;

constexpr uint32_t offset_size = 4;

/** One chunk frame's content. */
struct image_chunk {
    uint32_t offset;
    const uint8_t *data;
    uint32_t length;

    /** End of the chunk in the image. */
    [[nodiscard]] uint64_t end() const { return uint64_t{offset} + length; }
};

/** Whether the outcome has to be reported to the service that an upgrade has failed. */
enum class service_knows : bool { no, yes };

/** Ends the upgrade because a chunk failed. */
void fail_upgrade(lan_upg_mgr_t &manager, service_knows knows = service_knows::no) {
    if (upgrade_decide(manager) && knows == service_knows::no) {
        upgrade_tell_outcome(manager, 1);
    }
    upgrade_end(manager);
}

void fail_by_length(lan_upg_mgr_t &manager, uint64_t length) {
    LAN_LOG(LOG_LEVEL_FAILURE, "download length is too long:%d", static_cast<int>(length));
    fail_upgrade(manager);
}

/**
 * Hands a chunk to the service.
 *
 * @param[out] taken  bytes of the image that it has now
 * @return false when the upgrade has failed
 */
bool give_to_service(lan_upg_mgr_t &manager, const image_chunk &chunk, uint32_t &taken) {
    uint32_t remain_len = 0;
    const uint32_t total = manager.fw_info.file_size;
    const int32_t op_ret = manager.get_file_cb(&manager.fw_info, total, chunk.offset, chunk.data,
                                               chunk.length, &remain_len, manager.cb_arg);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "get_file_cb error:%d", op_ret);
        fail_upgrade(manager, service_knows::yes);
        return false;
    }
    taken = static_cast<uint32_t>(chunk.end()) - std::min(remain_len, chunk.length);
    if (manager.rpt_percent != 0) {
        __rpt_upload_upgrade_percent(manager.cid, taken, total);
    }
    return true;
}

/** The image is complete: notifies the app, and has the worker notify the service. */
void finish_transfer(lan_upg_mgr_t &manager, uint32_t total) {
    LAN_LOG(LOG_LEVEL_TRACE, "download firmware success");
    if (!upgrade_decide(manager)) {
        return;
    }
    // A failed send changes nothing: the image is complete.
    static_cast<void>(chunk_request(manager.cid, total, 0).send());
    // Before the worker starts, since that disarms the watchdog when it ends.
    upgrade_arm_watchdog(manager, outcome_watchdog_ms);
    __lan_upgrade_nofity(manager, 0);
}

/** Asks for the next chunk. Returns false when the upgrade has failed. */
bool request_next(lan_upg_mgr_t &manager, uint32_t offset, uint32_t total) {
    const uint32_t size = std::min(manager.chunk_size, total - offset);
    const int32_t op_ret = chunk_request(manager.cid, offset, size).send();
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "send error:%d", op_ret);
        fail_upgrade(manager);
        return false;
    }
    upgrade_arm_watchdog(manager, chunk_watchdog_ms);
    return true;
}

/** Takes one chunk of the open transfer. Returns false when the upgrade has failed. */
bool take_chunk(lan_upg_mgr_t &manager, const image_chunk &chunk) {
    const uint32_t total = manager.fw_info.file_size;
    if (chunk.offset > total || chunk.end() > UINT32_MAX) {
        fail_by_length(manager, chunk.end());
        return false;
    }
    uint32_t taken = 0;
    if (!give_to_service(manager, chunk, taken)) {
        return false;
    }
    if (chunk.end() > total) {
        fail_by_length(manager, chunk.end());
        return false;
    }
    if (chunk.end() == total) {
        finish_transfer(manager, total);
        return true;
    }
    return request_next(manager, taken, total);
}

void process_chunk(const lan_request &request, lan_upg_mgr_t &manager) {
    if (upgrade_admit_chunk(manager) != chunk_admission::admitted) {
        return;
    }
    byte_reader reader(request.tmp_out, request.tmp_len);
    const uint32_t offset = reader.u32();
    if (!reader.ok()) {
        LAN_LOG(LOG_LEVEL_FAILURE, "chunk without offset, length:%d",
                static_cast<int>(request.tmp_len));
        return fail_upgrade(manager);
    }
    const image_chunk chunk{offset, request.tmp_out + offset_size, reader.left()};
    if (take_chunk(manager, chunk)) {
        LAN_LOG(LOG_LEVEL_TRACE, "download end");
    }
}

void log_offset(const uint8_t *bytes) {
    LAN_LOG(LOG_LEVEL_TRACE, "data[0]:%d,data[1]:%d,data[2]:%d,data[3]:%d", bytes[0], bytes[1],
            bytes[2], bytes[3]);
}

void log_place(const lan_request &request) {
    uint32_t as_received = 0;
    std::memcpy(&as_received, request.tmp_out, offset_size);
    LAN_LOG(LOG_LEVEL_TRACE, "file size:%d,offset1:%d,offset2:%d,len:%d",
            static_cast<int>(up_info.file_size), static_cast<int>(as_received),
            static_cast<int>(byte_reader(request.tmp_out, offset_size).u32()),
            static_cast<int>(request.tmp_len));
}

} // namespace

void __lan_download_firmware(const lan_request &request) {
    const bool has_offset = request.tmp_len >= offset_size;
    if (has_offset) {
        log_offset(request.tmp_out);
    }
    const auto copy = heap_block<lan_upg_mgr_t>::allocate(sizeof(lan_upg_mgr_t));
    if (!copy) {
        LAN_LOG(LOG_LEVEL_FAILURE, "malloc error");
        return;
    }
    *copy.get() = {};
    if (has_offset) {
        log_place(request);
    }
    process_chunk(request, *copy.get());
}
