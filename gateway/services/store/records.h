// The records behind the contracts' gateway and device records, and the rules of their locks.
//
// Whoever changes something lasting holds change_mutex over the whole change, writes the store
// first and then the record, under field_mutex or dev_mutex. So the agent, which takes only these
// two, never waits for the disk, and memory and store never disagree. Order: change_mutex before
// the other two. No report is sent with any of them held.
#pragma once

#include "gateway/records.h"
#include "gateway_services/site.h"
#include "platform/owners.h"
#include "store/store.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/** The gateway record with the fields that the agent does not know. */
struct gateway_record {
    gw_cntl_t shared; /**< what the agent sees */
    int32_t channel;  /**< Zigbee radio channel */
};

/** Most device records since the gateway was opened: those of devices that left are kept. */
constexpr std::size_t device_records_max = 65'536;

/** An object of data points that has none. */
constexpr std::string_view no_data_points = "{}";
/** Setting that keeps the data points of the gateway's own device while that is not in the list. */
constexpr std::string_view own_device_dps_setting = "own_device_dps";

/** A device record with the fields that the agent does not know. Lives until the gateway is closed,
 * so that a record handed out stays valid when its device leaves; a device that comes back gets it
 * again. */
struct device_record : dev_cntl_t {
    std::string dps =
        std::string(no_data_points); /**< data points, JSON object; guarded by dev_mutex */
    bool is_listed = false; /**< stands in the list and in the store; guarded by dev_mutex */
};

/**
 * Creates a mutex.
 *
 * @throws refused  there is no memory
 */
void make_mutex(kelo_mutex_t &mutex);

/** The one gateway record. */
gateway_record &the_gateway();
/** The extended state. It says what the gateway is doing, and is not stored. */
std::atomic<uint8_t> &extended_state();
/** Held over every lasting change. */
kelo_mutex_t change_mutex();

/**
 * Creates the mutexes and makes the gateway's record. The list has no device yet.
 *
 * @param own_dps  data points of the gateway's own device
 */
void records_init(const site &stored, const std::string &own_dps);
/** Releases them. */
void records_shutdown();

/** The device in the list, or null. Takes dev_mutex. */
device_record *find_listed_device(std::string_view dev_id);
/** The device in the list, or the gateway's own, or null. Takes dev_mutex. */
device_record *find_device(std::string_view dev_id);
/** As find_listed_device; throws refused when there is none. */
device_record &need_listed_device(std::string_view dev_id);
/** As find_device; throws refused when there is none. */
device_record &need_device(std::string_view dev_id);
/** The same; throws refused when it is offline, too. */
device_record &need_online_device(std::string_view dev_id);
/** The gateway's own device: the one in the list that has its id, else one beside the list. Takes
 * dev_mutex. */
device_record *own_device();

/** Whether a device can be reached; the gateway's own always can. Takes dev_mutex. */
bool is_online(const device_record &device);
/** The gateway's id, the alternative one while it has none. Takes field_mutex. */
std::string gateway_id();
/** Whether the gateway itself has that id, in any letter case. */
bool is_own_id(std::string_view dev_id);
/** A device's product id. Takes dev_mutex. */
std::string product_of(const device_record &device);

/** @throws refused  so many more records would be too many; change_mutex is held */
void check_room_for_devices(std::size_t more);
/** Prepares for very many devices, which are listed faster then; nobody else runs. */
void expect_devices(std::size_t number);
/** Puts a device that is not listed at the end of the list; change_mutex is held, there is room.
 * Takes dev_mutex. */
void list_device(const site_device &from);
/** Takes a listed device out of the list; change_mutex is held. Takes dev_mutex. */
void unlist_device(device_record &device);

/** One lasting change: holds change_mutex and a transaction. Records are changed after commit. */
class lasting_change {
  public:
    lasting_change();
    /**
     * Makes the change last.
     *
     * @throws refused  nothing was changed
     */
    void commit() { all_.commit(); }

  private:
    platform::held_mutex change_;
    transaction all_;
};

/**
 * Changes fields of the gateway, all or nothing: checks the values, stores them, and writes them
 * into the record.
 *
 * @param with  further changes of the store that belong to the same transaction; may be empty
 * @throws usage_error  a value is not one of its field; refused
 */
void change_gateway_fields(const std::vector<field_setting> &settings,
                           const std::function<void()> &with = {});
/** Changes a setting of the gateway's own; see store::set_setting. Throws refused. */
void change_setting(std::string_view name, std::string_view value);

} // namespace gateway
