#include "records.h"

#include "gateway_services/error.h"
#include "platform/owners.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <strings.h>
#include <utility>

namespace gateway {
namespace {

gateway_record record;
kelo_mutex_t change;
/** Every device that ever was in the list since open, and the gateway's own. */
std::vector<std::unique_ptr<device_record>> devices;
device_record own;

void make_mutex(kelo_mutex_t *mutex) {
    if (kelo_hal_mutex_create_init(mutex) != 0)
        throw refused("no mutex could be created");
}

void release_mutex(kelo_mutex_t *mutex) {
    kelo_hal_mutex_release(std::exchange(*mutex, nullptr));
}

std::unique_ptr<device_record> make_device(const site_device &from) {
    auto device = std::make_unique<device_record>();
    device->state = DEV_STATE_BOUND;
    device->dps = from.dps;
    for (const field_setting &setting : from.fields)
        write_field(static_cast<dev_cntl_t *>(device.get()), *setting.of, setting.value);
    return device;
}

/** The device of that id in the list; dev_mutex is held. */
device_record *find_listed(std::string_view dev_id, bool ignore_case) {
    for (dev_cntl_t *device = record.shared.dev_list; device != nullptr; device = device->next) {
        const std::string_view id(device->dev_id);
        if (id.size() != dev_id.size())
            continue;
        if (id == dev_id || (ignore_case && strncasecmp(id.data(), dev_id.data(), id.size()) == 0))
            return static_cast<device_record *>(device);
    }
    return nullptr;
}

std::string gateway_id() {
    const platform::held_mutex guard(record.shared.field_mutex);
    return record.shared.gw_id[0] != '\0' ? record.shared.gw_id : record.shared.alt_gw_id;
}

} // namespace

gateway_record &the_gateway() {
    return record;
}
kelo_mutex_t change_mutex() {
    return change;
}

void open_records(const site &stored, const std::string &own_dps) {
    make_mutex(&change);
    make_mutex(&record.shared.field_mutex);
    make_mutex(&record.shared.dev_mutex);
    for (const field_setting &setting : stored.gateway)
        write_field(&record, *setting.of, setting.value);
    own.state = DEV_STATE_BOUND;
    own.online = 1;
    own.dps = own_dps;
    dev_cntl_t **end = &record.shared.dev_list;
    for (const site_device &from : stored.devices) {
        devices.push_back(make_device(from));
        *end = devices.back().get();
        end = &devices.back()->next;
    }
    std::atomic_ref(record.shared.dev_count).store(static_cast<uint32_t>(devices.size()));
}

void close_records() {
    release_mutex(&record.shared.dev_mutex);
    release_mutex(&record.shared.field_mutex);
    release_mutex(&change);
    record = {};
    own = {};
    devices.clear();
}

device_record *find_device(std::string_view dev_id) {
    {
        const platform::held_mutex guard(record.shared.dev_mutex);
        if (device_record *device = find_listed(dev_id, false))
            return device;
    }
    return dev_id == gateway_id() ? own_device() : nullptr;
}

bool is_listed(const device_record &device) {
    return &device != &own;
}

device_record *own_device() {
    const std::string id = gateway_id();
    const platform::held_mutex guard(record.shared.dev_mutex);
    if (device_record *device = find_listed(id, true))
        return device;
    if (id != own.dev_id) {
        std::memset(own.dev_id, 0, sizeof own.dev_id);
        id.copy(own.dev_id, sizeof own.dev_id - 1);
    }
    return &own;
}

} // namespace gateway
