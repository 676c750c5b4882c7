// The records behind the contracts' gateway and device records, and the rules of their locks.
//
// Whoever changes something lasting holds change_mutex over the whole change, writes the store
// first and then the record, under field_mutex or dev_mutex. So the agent, which takes only these
// two, never waits for the disk, and memory and store never disagree. Order: change_mutex before
// the other two.
#pragma once

#include "gateway/records.h"
#include "gateway_services/site.h"

#include <string>
#include <string_view>

namespace gateway {

/** The gateway record with what the agent does not know. */
struct gateway_record {
    gw_cntl_t shared; /**< what the agent sees */
    int32_t channel;  /**< Zigbee radio channel */
};

/** A device record with what the agent does not know. Lives until the gateway is closed, so that a
 * record handed out stays valid when its device leaves. */
struct device_record : dev_cntl_t {
    std::string dps = "{}"; /**< data points, JSON object; guarded by dev_mutex */
};

/** The one gateway record. */
gateway_record &the_gateway();
/** Held over every lasting change. */
kelo_mutex_t change_mutex();

/** Creates the mutexes and makes the records. @param own_dps  data points of the gateway's own
 * device */
void open_records(const site &stored, const std::string &own_dps);
/** Releases them. */
void close_records();

/** The device in the list, or the gateway's own, or null. Takes dev_mutex. */
device_record *find_device(std::string_view dev_id);
/** Whether a device stands in the store; else it is the gateway's own, beside the list. */
bool is_listed(const device_record &device);
/** The gateway's own device: the one in the list that has its id, else one beside the list. Takes
 * dev_mutex. */
device_record *own_device();

} // namespace gateway
