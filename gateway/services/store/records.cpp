#include "store/records.h"

#include "gateway_services/error.h"
#include "platform/owners.h"
#include "store/store.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace gateway {
namespace {

gateway_record record;
std::atomic<uint8_t> state;
kelo_mutex_t lasting_change_mutex;
/** Every device that ever was in the list since open, and the gateway's own. */
std::vector<std::unique_ptr<device_record>> device_records;
device_record own;
dev_cntl_t *last_listed;
/** The devices above by their ids in lower case; guarded by dev_mutex. */
std::unordered_multimap<std::string, device_record *> devices_by_id;

std::string lower_case(std::string_view text) {
    std::string lower(text);
    for (char &c : lower) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return lower;
}

void release_mutex(kelo_mutex_t *mutex) {
    kelo_hal_mutex_release(std::exchange(*mutex, nullptr));
}

/** The record of that very id, listed or not; dev_mutex is held. */
device_record *find_record(std::string_view dev_id) {
    const auto [first, end] = devices_by_id.equal_range(lower_case(dev_id));
    const auto found =
        std::find_if(first, end, [&](const auto &each) { return dev_id == each.second->dev_id; });
    return found == end ? nullptr : found->second;
}

/** The listed device of that id in any letter case, that very id before others; dev_mutex is held.
 */
device_record *find_listed_ignoring_case(std::string_view dev_id) {
    if (device_record *exact = find_record(dev_id); exact != nullptr && exact->is_listed) {
        return exact;
    }
    const auto [first, end] = devices_by_id.equal_range(lower_case(dev_id));
    const auto found =
        std::find_if(first, end, [](const auto &each) { return each.second->is_listed; });
    return found == end ? nullptr : found->second;
}

/** The record of an id, made when there is none; dev_mutex is held. */
device_record &make_record(const std::string &dev_id) {
    if (device_record *known = find_record(dev_id)) {
        return *known;
    }
    device_records.push_back(std::make_unique<device_record>());
    device_record &made = *device_records.back();
    dev_id.copy(made.dev_id, sizeof made.dev_id - 1);
    devices_by_id.emplace(lower_case(dev_id), &made);
    return made;
}

device_record &need(device_record *device, std::string_view dev_id) {
    if (device == nullptr) {
        throw refused(fmt::format("unknown device {}", dev_id));
    }
    return *device;
}

} // namespace

void make_mutex(kelo_mutex_t &mutex) {
    if (kelo_hal_mutex_create_init(&mutex) != 0) {
        throw refused("no mutex could be created");
    }
}

gateway_record &the_gateway() {
    return record;
}
std::atomic<uint8_t> &extended_state() {
    return state;
}
kelo_mutex_t change_mutex() {
    return lasting_change_mutex;
}

void records_init(const site &stored, const std::string &own_dps) {
    make_mutex(lasting_change_mutex);
    make_mutex(record.shared.field_mutex);
    make_mutex(record.shared.dev_mutex);
    for (const field_setting &setting : stored.gateway) {
        write_field(&record, *setting.of, setting.value);
    }
    state = 0;
    own.state = DEV_STATE_BOUND;
    own.online = 1;
    own.dps = own_dps;
}

void records_shutdown() {
    release_mutex(&record.shared.dev_mutex);
    release_mutex(&record.shared.field_mutex);
    release_mutex(&lasting_change_mutex);
    record = {};
    own = {};
    last_listed = nullptr;
    devices_by_id.clear();
    device_records.clear();
}

device_record *find_listed_device(std::string_view dev_id) {
    const platform::held_mutex guard(record.shared.dev_mutex);
    device_record *device = find_record(dev_id);
    return device != nullptr && device->is_listed ? device : nullptr;
}

device_record *find_device(std::string_view dev_id) {
    if (device_record *device = find_listed_device(dev_id)) {
        return device;
    }
    return dev_id == gateway_id() ? own_device() : nullptr;
}

device_record &need_device(std::string_view dev_id) {
    return need(find_device(dev_id), dev_id);
}
device_record &need_listed_device(std::string_view dev_id) {
    return need(find_listed_device(dev_id), dev_id);
}

device_record *own_device() {
    const std::string id = gateway_id();
    const platform::held_mutex guard(record.shared.dev_mutex);
    if (device_record *device = find_listed_ignoring_case(id)) {
        return device;
    }
    if (id != own.dev_id) {
        std::memset(own.dev_id, 0, sizeof own.dev_id);
        id.copy(own.dev_id, sizeof own.dev_id - 1);
    }
    return &own;
}

bool is_online(const device_record &device) {
    if (&device == own_device()) {
        return true;
    }
    const platform::held_mutex guard(record.shared.dev_mutex);
    return device.online == 1;
}

device_record &need_online_device(std::string_view dev_id) {
    device_record &device = need_device(dev_id);
    if (!is_online(device)) {
        throw refused(fmt::format("device {} is offline", dev_id));
    }
    return device;
}

std::string gateway_id() {
    const platform::held_mutex guard(record.shared.field_mutex);
    return record.shared.gw_id[0] != '\0' ? record.shared.gw_id : record.shared.alt_gw_id;
}

bool is_own_id(std::string_view dev_id) {
    return lower_case(dev_id) == lower_case(gateway_id());
}

std::string product_of(const device_record &device) {
    const platform::held_mutex guard(record.shared.dev_mutex);
    return device.pid;
}

void check_room_for_devices(std::size_t more) {
    if (device_records.size() + more > device_records_max) {
        throw refused(fmt::format("there is room for {} devices until the gateway is restarted",
                                  device_records_max));
    }
}

void expect_devices(std::size_t number) {
    device_records.reserve(number);
    devices_by_id.reserve(number);
}

void list_device(const site_device &from) {
    const platform::held_mutex guard(record.shared.dev_mutex);
    device_record &device = make_record(from.id());
    dev_cntl_t *fields = &device;
    // The id is not written: another thread may hold the old record and read it.
    const field *id_field = &device_fields().front();
    for (const field &of : device_fields().subspan(1)) {
        write_field(fields, of, is_number(of) ? field_value(int64_t{0}) : field_value(""));
    }
    device.line_stat_sent = 0;
    device.state = DEV_STATE_BOUND;
    device.dps = from.dps;
    device.is_listed = true;
    for (const field_setting &setting : from.fields) {
        if (setting.of != id_field) {
            write_field(fields, *setting.of, setting.value);
        }
    }
    (last_listed == nullptr ? record.shared.dev_list : last_listed->next) = &device;
    last_listed = &device;
    std::atomic_ref(record.shared.dev_count).fetch_add(1);
}

void unlist_device(device_record &device) {
    const platform::held_mutex guard(record.shared.dev_mutex);
    dev_cntl_t *previous = nullptr;
    dev_cntl_t **link = &record.shared.dev_list;
    while (*link != &device) {
        previous = *link;
        link = &previous->next;
    }
    *link = device.next;
    if (last_listed == &device) {
        last_listed = previous;
    }
    device.next = nullptr;
    device.state = DEV_STATE_FREE;
    device.dps = no_data_points;
    device.is_listed = false;
    std::atomic_ref(record.shared.dev_count).fetch_sub(1);
}

lasting_change::lasting_change() : change_(change_mutex()), all_(the_store()) {}

void change_gateway_fields(const std::vector<field_setting> &settings,
                           const std::function<void()> &with) {
    for (const field_setting &setting : settings) {
        check_value(*setting.of, setting.value);
    }
    lasting_change change;
    for (const field_setting &setting : settings) {
        the_store().set_gateway_field(*setting.of, setting.value);
    }
    if (with) {
        with();
    }
    change.commit();
    const platform::held_mutex guard(the_gateway().shared.field_mutex);
    for (const field_setting &setting : settings) {
        write_field(&the_gateway(), *setting.of, setting.value);
    }
}

void change_setting(std::string_view name, std::string_view value) {
    lasting_change change;
    the_store().set_setting(name, value);
    change.commit();
}

} // namespace gateway
