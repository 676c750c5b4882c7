#include "subjects/devices.h"

#include "calls/activity.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/owners.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/groups.h"
#include "subjects/scenes.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace gateway {
namespace {

using support::json_value;

/** The fields that are reported of a new device. */
struct product_of_device {
    std::string dev_id;
    std::string pid;
};

/** Stores the given fields of a device that stands in the list already. */
void store_known_device(const site_device &device) {
    for (const field_setting &setting : device.fields) {
        the_store().set_device_field(device.id(), *setting.of, setting.value);
    }
    if (device.dps != no_data_points) {
        the_store().set_device_dps(device.id(), device.dps);
    }
}

/** Writes the given fields into the record of a listed device. */
void write_known_device(device_record &known, const site_device &device) {
    const platform::held_mutex guard(the_gateway().shared.dev_mutex);
    for (const field_setting &setting : device.fields) {
        if (setting.of != &device_fields().front()) {
            write_field(static_cast<dev_cntl_t *>(&known), *setting.of, setting.value);
        }
    }
    if (device.dps != no_data_points) {
        known.dps = device.dps;
    }
}

/** Whether apps see the device already; change_mutex is held. */
bool is_bound(const device_record *known) {
    return known != nullptr && known->state != DEV_STATE_FREE;
}

std::string device_text(const json_value &product, const char *member, const char *field_name) {
    const json_value value = product.required(member);
    std::string read = value.text();
    try {
        check_value(need_field(device_fields(), field_name), read);
    } catch (const usage_error &error) {
        value.refuse(error.what());
    }
    return read;
}

/** The devices of a binding request. */
std::vector<site_device> read_products(const json_value &request) {
    std::vector<site_device> devices;
    std::set<std::string> ids;
    for (const json_value &product : request.required("products").elements()) {
        const std::string cid = device_text(product, "cid", "dev_id");
        if (!ids.insert(cid).second) {
            product.required("cid").refuse(fmt::format("'{}' is given twice", cid));
        }
        site_device &device = devices.emplace_back();
        device.set("dev_id", cid);
        device.set("pid", device_text(product, "pid", "pid"));
    }
    return devices;
}

} // namespace

void bind_devices(std::vector<site_device> devices, arrival how) {
    std::vector<product_of_device> reported;
    {
        lasting_change change;
        std::vector<device_record *> known;
        for (site_device &device : devices) {
            if (is_own_id(device.id())) {
                throw refused(fmt::format("{} is the gateway itself", device.id()));
            }
            device.set("state", int64_t{DEV_STATE_BOUND});
            known.push_back(find_listed_device(device.id()));
            if (how == arrival::joined || !is_bound(known.back())) {
                reported.push_back({device.id(), {}});
            }
            if (known.back() != nullptr) {
                store_known_device(device);
            } else {
                the_store().add_device(device);
            }
        }
        check_room_for_devices(
            static_cast<std::size_t>(std::count(known.begin(), known.end(), nullptr)));
        change.commit();
        for (std::size_t i = 0; i < devices.size(); ++i) {
            if (known[i] != nullptr) {
                write_known_device(*known[i], devices[i]);
            } else {
                list_device(devices[i]);
            }
        }
        for (product_of_device &each : reported) {
            each.pid = product_of(need_listed_device(each.dev_id));
        }
    }
    for (const product_of_device &each : reported) {
        if (how == arrival::joined) {
            tell_event(fmt::format("device {} joined", each.dev_id));
        }
        engr_lan_sub_dev_bind_report(each.dev_id.c_str(), each.pid.c_str());
    }
}

void bind_products(const json_value &request) {
    std::vector<site_device> devices = read_products(request);
    std::vector<std::string> ids;
    for (const site_device &each : devices) {
        ids.push_back(each.id());
    }
    bind_devices(std::move(devices), arrival::bound);
    tell_deed(fmt::format("bound {}", listed(ids)));
}

void unbind_device(device_record *device) {
    if (device == nullptr) {
        throw usage_error("no device to unbind");
    }
    const std::string dev_id = device->dev_id;
    {
        lasting_change change;
        if (find_listed_device(dev_id) != device) {
            throw refused(fmt::format("device {} is not bound", dev_id));
        }
        the_store().run("DELETE FROM device WHERE dev_id=?", dev_id);
        leave_groups(dev_id);
        remove_panel(dev_id);
        change.commit();
        unlist_device(*device);
    }
    tell_deed(fmt::format("unbound device {}", dev_id));
    engr_lan_sub_dev_unbind_report(dev_id.c_str());
}

void set_device_field(std::string_view dev_id, std::string_view name, const std::string &value) {
    const field &of = need_field(device_fields().subspan(1), name);
    const field_value checked = value_from_text(of, value);
    const platform::held_mutex change(change_mutex());
    dev_cntl_t &device = need_listed_device(dev_id);
    the_store().set_device_field(dev_id, of, checked);
    const platform::held_mutex guard(the_gateway().shared.dev_mutex);
    write_field(&device, of, checked);
}

} // namespace gateway
