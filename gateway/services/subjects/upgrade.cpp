#include "subjects/upgrade.h"

#include "calls/activity.h"
#include "calls/calls.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/clock.h"
#include "platform/owners.h"
#include "platform/thread.h"
#include "platform/timer.h"
#include "store/records.h"
#include "subjects/firmware.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <memory>
#include <optional>
#include <utility>

namespace gateway {
namespace {

/** State of an upgrade. */
enum class phase : uint8_t { idle, offered, receiving, installing, installed, refused, failed };
constexpr const char *phase_names[] = {"idle",      "offered", "receiving", "installing",
                                       "installed", "refused", "failed"};

constexpr thrd_param_t starter_thread{16 * 1024, 2, "upgrade_start"};
/** Longest time for which the end of the gateway waits for an installation to notice it. */
constexpr uint32_t installing_step_ms = 20;
constexpr int32_t percent_sending = 99; /**< the device is getting its image */
constexpr int32_t percent_done = 100;
constexpr uint32_t device_firmware_type = 10;
/** Delay after which an offer is given up whose upgrade has ended: not inside the call that reports
 * the end. */
constexpr uint32_t offer_end_ms = 1;

/** One transfer; does not change. Copied where no mutex may be held. */
struct transfer {
    /** Identifies the transfer; the agent passes it to each callback, which may be late. */
    uint32_t number = 0;
    std::string dev_id; /**< as offered; empty: the gateway */
    lan_fw_info_t firmware{};
    upgrade_scenario options;

    [[nodiscard]] firmware_target target() const {
        return {firmware.fw_kind == FW_KIND_GATEWAY ? "" : dev_id, firmware.sw_ver};
    }
};

/** The upgrade under way, or the last one. */
struct upgrade_record : transfer {
    phase now = phase::idle;
    uint32_t ends_before = 0;              /**< upgrade_ends when it was offered */
    std::unique_ptr<received_image> image; /**< while offered or receiving */
    uint32_t received = 0;
    uint32_t quarters_told = 0; /**< see pass_quarter */
    std::string reason;         /**< why it was refused or has failed */
};

kelo_mutex_t upgrade_mutex; // guards what follows; no call of the agent is made under it
upgrade_record current;
upgrade_scenario scenario_options;
image_medium medium;
std::function<uint32_t(uint32_t scenario_ms)> installing_time; // of open_options
uint32_t last_number;
/** The upgrade that takes the place of the current one once the agent has accepted its transfer. */
std::optional<upgrade_record> awaited;
thrd_handle_t starter;
bool is_installing;
bool is_upgrade_stopped;

// These are for the notice of an upgrade's end, which must not wait for the mutex.
std::atomic<uint32_t> upgrade_ends;  // how often the agent has ended an upgrade
std::atomic<uint16_t> offer_timer;   // 0: none was needed yet
std::atomic<bool> is_offer_standing; // the current upgrade is offered

void *as_argument(uint32_t number) {
    return reinterpret_cast<void *>(static_cast<uintptr_t>(number));
}

std::string shown_device() {
    return current.dev_id.empty() ? gateway_id() : current.dev_id;
}

/** The upgrade in words. */
std::string shown_upgrade() {
    return fmt::format("upgrade of {} to {}", shown_device(), current.firmware.sw_ver);
}

/** Ends the upgrade without a new version. */
void give_up(phase how, const std::string &reason) {
    current.image.reset();
    current.now = how;
    current.reason = reason;
    is_offer_standing = false;
    const std::string outcome = fmt::format("{} {}: {}", shown_upgrade(),
                                            phase_names[static_cast<std::size_t>(how)], reason);
    GATEWAY_LOG(LOG_LEVEL_FAILURE, "%s", outcome.c_str());
    tell_event(outcome);
}

upgrade_record new_upgrade(std::string dev_id, const lan_fw_info_t &firmware,
                           const upgrade_scenario &options) {
    upgrade_record made;
    made.number = ++last_number;
    made.ends_before = upgrade_ends;
    made.dev_id = std::move(dev_id);
    made.firmware = firmware;
    made.options = options;
    return made;
}

/** Gives up what was offered or received before: the agent has one upgrade at a time. */
void replace_current(upgrade_record &&by) {
    current.image.reset(); // its partial file has to be gone before the next one is made
    current = std::move(by);
    awaited.reset();
    is_offer_standing = false;
}

void take_room() {
    current.image = std::make_unique<received_image>(current.firmware.file_size, medium);
}

/** Makes the awaited transfer the current one: the agent has accepted it. */
void begin_awaited() {
    replace_current(std::move(*awaited));
    current.now = phase::receiving;
    try {
        take_room();
    } catch (const std::exception &error) {
        give_up(phase::failed, error.what());
    }
}

/** Whether a call of the agent is about the transfer under way. The first one about the awaited
 * transfer may come before its start has returned. */
bool is_current(const void *cb_arg) {
    if (awaited && cb_arg == as_argument(awaited->number)) {
        begin_awaited();
    }
    return current.now == phase::receiving && cb_arg == as_argument(current.number);
}

/**
 * Appends the new bytes of a chunk.
 *
 * @return bytes at its end that are handed back
 * @throws refused
 */
uint32_t take_chunk(uint32_t offset, const uint8_t *data, uint32_t length) {
    received_image &image = *current.image;
    const uint32_t added = image.new_bytes(offset, length);
    const uint32_t end = image.received() + added;
    if (current.options.fail_at && end > *current.options.fail_at) {
        throw refused(
            fmt::format("byte {} cannot be taken: set by the scenario", *current.options.fail_at));
    }
    // At least one byte is kept, so that the transfer terminates.
    const uint32_t back = end == image.size() ? 0 : std::min(current.options.remain_len, added - 1);
    image.append(data + (length - added), added - back);
    current.received = image.received();
    if (pass_quarter(current.received, current.firmware.file_size, current.quarters_told)) {
        tell_event(fmt::format("{}: {} % received", shown_upgrade(), current.quarters_told * 25));
    }
    return back;
}

int on_chunk(lan_fw_info_t *firmware, uint32_t total_size, uint32_t offset, const uint8_t *data,
             uint32_t length, uint32_t *remain_len, void *cb_arg) {
    const call_arguments arguments = {{"record", firmware},
                                      {"total_size", total_size},
                                      {"offset", offset},
                                      {"data", payload_bytes{data, length}}};
    return service(call("get_file_cb"), arguments, [&] {
        const platform::held_mutex guard(upgrade_mutex);
        if (!is_current(cb_arg)) {
            return result_failed;
        }
        try {
            *remain_len = take_chunk(offset, data, length);
            return 0;
        } catch (const std::exception &error) {
            give_up(phase::failed, error.what());
            return result_failed;
        }
    });
}

/**
 * Lets the time of an installation pass.
 *
 * @throws refused  the gateway ends
 */
void pass_installing_time(uint32_t time_ms) {
    for (uint32_t left_ms = time_ms; left_ms > 0;) {
        {
            const platform::held_mutex guard(upgrade_mutex);
            if (is_upgrade_stopped) {
                throw refused("the gateway was stopped");
            }
        }
        const uint32_t step_ms = std::min(left_ms, installing_step_ms);
        kelo_hal_system_sleep(step_ms);
        left_ms -= step_ms;
    }
}

void report_percent(const transfer &of, int32_t percent) {
    if (of.options.rpt_percent && !of.target().dev_id.empty()) {
        engr_rpt_upload_upgrade_percent(percent, of.dev_id.c_str(), 0);
    }
}

/** Installs a complete image: of the gateway at once, to a device it is sent by radio first. */
void install(received_image &image, const transfer &of) {
    const firmware_target target = of.target();
    verify_image(image, of.firmware.file_md5);
    check_version(target);
    report_percent(of, percent_sending);
    pass_installing_time(installing_time(of.options.install_ms));
    install_firmware(image, target);
    {
        // The agent's upgrade ends with the report below, and the next one may begin.
        const platform::held_mutex guard(upgrade_mutex);
        is_installing = false;
    }
    report_percent(of, percent_done);
    if (target.dev_id.empty()) {
        return;
    }
    const int32_t result = engr_lan_gw_subdevice_update(
        target.dev_id.c_str(), target.sw_ver.c_str(), device_firmware_type, 0, 0);
    if (result != 0 && result != ENGR_ERR_NO_CLIENT) {
        GATEWAY_LOG(LOG_LEVEL_WARNING, "the version of %s is not reported: result %d",
                    target.dev_id.c_str(), result);
    }
}

int32_t receive_outcome(bool is_complete, const void *cb_arg) {
    std::unique_ptr<received_image> image;
    transfer ended;
    {
        const platform::held_mutex guard(upgrade_mutex);
        if (!is_current(cb_arg)) {
            return result_failed;
        }
        if (!is_complete) {
            give_up(phase::failed, "the app left, fell silent or sent more than the image");
            return 0;
        }
        current.now = phase::installing;
        tell_event(fmt::format("{}: received, installing", shown_upgrade()));
        is_installing = true;
        image = std::move(current.image);
        ended = current;
    }
    int32_t result = 0;
    std::string reason;
    try {
        install(*image, ended);
    } catch (const std::exception &error) {
        result = result_failed;
        reason = error.what();
    }
    image.reset();
    const platform::held_mutex guard(upgrade_mutex);
    if (cb_arg != as_argument(current.number)) {
        return result; // the next upgrade has begun
    }
    is_installing = false;
    if (result == 0) {
        current.now = phase::installed;
        tell_event(fmt::format("{}: installed", shown_upgrade()));
    } else {
        give_up(phase::failed, reason);
    }
    return result;
}

int on_outcome(lan_fw_info_t *firmware, int result, void *cb_arg) {
    return service(call("ug_notify_cb"), {{"record", firmware}, {"result", result}},
                   [&] { return receive_outcome(result == 0, cb_arg); });
}

/**
 * Has the agent ask the app for the image. Takes up to the time of a send.
 *
 * @return the agent's result
 */
int32_t run_transfer(const transfer &begun) {
    return lan_gw_start_upgrade(begun.dev_id.c_str(), &begun.firmware,
                                callback_unless_absent(call("get_file_cb"), on_chunk),
                                as_argument(begun.number),
                                callback_unless_absent(call("ug_notify_cb"), on_outcome),
                                begun.options.rpt_percent ? 1 : 0, begun.options.chunk_size);
}

std::string start_failure(int32_t result) {
    return fmt::format("the transfer cannot be started: result {}", result);
}

/**
 * Gives an offer up when the agent has ended its upgrade meanwhile. The agent calls no callback,
 * since no transfer was started.
 *
 * @return whether it is still offered
 */
bool check_offer() {
    if (current.now == phase::offered && current.ends_before != upgrade_ends) {
        give_up(phase::failed, "the upgrade ended before its transfer began");
    }
    return current.now == phase::offered;
}

void on_offer_timer(uint16_t, void *) {
    const platform::held_mutex guard(upgrade_mutex);
    check_offer();
}

void run_starter(void *argument) {
    std::optional<transfer> begun;
    {
        const platform::held_mutex guard(upgrade_mutex);
        if (argument == as_argument(current.number) && check_offer()) {
            current.now = phase::receiving;
            is_offer_standing = false;
            begun = current;
        }
    }
    const int32_t result = begun ? run_transfer(*begun) : 0;
    const platform::held_mutex guard(upgrade_mutex);
    if (result != 0 && is_current(argument)) {
        give_up(phase::failed, start_failure(result));
    }
}

/** Waits for the end of the thread that started the transfer before. */
void end_starter() {
    thrd_handle_t ended = nullptr;
    {
        const platform::held_mutex guard(upgrade_mutex);
        ended = std::exchange(starter, nullptr);
    }
    DeleteThrdHandle(ended);
}

void need_offer_timer() {
    uint16_t timer = offer_timer;
    if (timer == 0 && sys_add_timer(on_offer_timer, nullptr, &timer) != 0) {
        throw refused("the upgrade cannot be watched: no timer");
    }
    offer_timer = timer;
}

/**
 * Accepts the offer in the record.
 *
 * @throws refused, usage_error
 */
void take_offer() {
    const firmware_target target = current.target();
    if (current.firmware.file_size == 0) {
        throw refused("the image is empty");
    }
    check_version(target);
    const std::string installed = installed_version(target.dev_id);
    if (current.options.refuse_same_version && installed == target.sw_ver) {
        throw refused("this version is installed already");
    }
    need_offer_timer();
    take_room();
    current.now = phase::offered;
    is_offer_standing = true;
    if (current.ends_before != upgrade_ends) {
        note_upgrade_end(); // nobody else does: the end came before the offer stood
    }
    if (!current.options.never_start &&
        CreateAndStart(&starter, nullptr, nullptr, run_starter, as_argument(current.number),
                       &starter_thread) != 0) {
        throw refused("the transfer cannot be started: no thread");
    }
}

upgrade_record wanted_upgrade(const upgrade_start &wanted) {
    std::string dev_id = wanted.cid.value_or(current.dev_id);
    lan_fw_info_t firmware = current.firmware;
    const bool is_own = dev_id.empty() || dev_id == gateway_id();
    firmware.fw_kind = is_own ? FW_KIND_GATEWAY : FW_KIND_SUB_DEVICE;
    firmware.file_size = wanted.file_size.value_or(firmware.file_size);
    upgrade_scenario options = scenario_options;
    options.chunk_size = wanted.chunk_size.value_or(options.chunk_size);
    options.rpt_percent = wanted.percent.value_or(options.rpt_percent);
    options.remain_len = wanted.remain.value_or(options.remain_len);
    return new_upgrade(std::move(dev_id), firmware, options);
}

} // namespace

int32_t receive_offer(const char *dev_id, const lan_fw_info_t &firmware) {
    end_starter();
    const platform::held_mutex guard(upgrade_mutex);
    if (is_installing) {
        GATEWAY_LOG(LOG_LEVEL_FAILURE, "another image is refused while that of %s is installed",
                    shown_device().c_str());
        return result_failed;
    }
    replace_current(new_upgrade(dev_id, firmware, scenario_options));
    tell_deed(fmt::format("offers {} version {}, {} bytes", shown_device(), firmware.sw_ver,
                          firmware.file_size));
    try {
        settle_installation();
        take_offer();
        return 0;
    } catch (const std::exception &error) {
        give_up(phase::refused, error.what());
        return result_failed;
    }
}

int32_t start_upgrade(const upgrade_start &wanted) {
    transfer begun;
    {
        const platform::held_mutex guard(upgrade_mutex);
        if (is_installing) {
            throw refused(fmt::format("the image of {} is being installed", shown_device()));
        }
        settle_installation();
        upgrade_record next = wanted_upgrade(wanted);
        check_image_room(next.firmware.file_size, current.image ? current.image->size() : 0,
                         medium);
        begun = next;
        awaited = std::move(next);
    }
    const int32_t result = run_transfer(begun);
    const platform::held_mutex guard(upgrade_mutex);
    if (awaited && awaited->number == begun.number) {
        if (result == 0) {
            begin_awaited();
        } else {
            awaited.reset();
            GATEWAY_LOG(LOG_LEVEL_FAILURE, "%s", start_failure(result).c_str());
        }
    }
    return result;
}

void note_upgrade_end() {
    ++upgrade_ends;
    if (is_offer_standing) {
        // Fails only when the gateway closes, and then the offer ends with it.
        static_cast<void>(sys_start_timer(offer_timer, offer_end_ms, SYS_TIMER_ONE_SHOT));
    }
}

void upgrade_init(const upgrade_scenario &scenario, image_medium kept_in,
                  std::function<uint32_t(uint32_t scenario_ms)> installing_ms) {
    make_mutex(upgrade_mutex);
    scenario_options = scenario;
    medium = kept_in;
    installing_time = installing_ms ? std::move(installing_ms) : std::identity();
    is_installing = false;
    is_upgrade_stopped = false;
}

void upgrade_stop() {
    {
        const platform::held_mutex guard(upgrade_mutex);
        is_upgrade_stopped = true;
    }
    end_starter();
    is_offer_standing = false;
    if (const uint16_t timer = offer_timer.exchange(0); timer != 0) {
        sys_delete_timer(timer);
    }
}

void upgrade_shutdown() {
    current = {};
    awaited.reset();
    kelo_hal_mutex_release(std::exchange(upgrade_mutex, nullptr));
}

void add_upgrade_status(nlohmann::ordered_json &status) {
    const platform::held_mutex guard(upgrade_mutex);
    const bool is_known = current.now != phase::idle;
    status["upgrade"] = {{"state", phase_names[static_cast<std::size_t>(current.now)]},
                         {"device", is_known ? shown_device() : ""},
                         {"version", current.firmware.sw_ver},
                         {"received", current.received},
                         {"size", current.firmware.file_size},
                         {"reason", current.reason}};
}

} // namespace gateway
