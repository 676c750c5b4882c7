// Binding and unbinding of sub-devices.
#include "subjects/binding.h"

#include "calls/calls.h"
#include "calls/requests.h"
#include "calls/results.h"
#include "engr_lan_agent.h"
#include "gateway/device.h"
#include "gateway/gateway.h"
#include "store/changes.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/data_points.h"
#include "subjects/groups.h"
#include "subjects/scenes.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace gateway {
namespace {

/** What apps are told of a device that comes. */
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
        check_value(*find_field(device_fields(), field_name), read);
    } catch (const usage_error &error) {
        value.refuse(error.what());
    }
    return read;
}

/** The devices of a binding request. */
std::vector<site_device> read_products(const json_value &request) {
    const json_value products = request.required("products");
    products.need_array();
    std::vector<site_device> devices(products.json.size());
    std::set<std::string> ids;
    for (std::size_t i = 0; i < devices.size(); ++i) {
        const json_value product = products.element(i);
        const std::string cid = device_text(product, "cid", "dev_id");
        if (!ids.insert(cid).second) {
            product.required("cid").refuse("'" + cid + "' is given twice");
        }
        devices[i].set("dev_id", cid);
        devices[i].set("pid", device_text(product, "pid", "pid"));
    }
    return devices;
}

/** @return its id, since the record may become another's when the mutex is free */
std::string unbind(device_record &device) {
    lasting_change change;
    const std::string dev_id = device.dev_id;
    if (find_listed_device(dev_id) != &device) {
        throw refused("device " + dev_id + " is not bound");
    }
    the_store().prepare("DELETE FROM device WHERE dev_id=?").bind(1, dev_id).run();
    leave_groups(dev_id);
    forget_panel(dev_id);
    change.commit();
    unlist_device(device);
    return dev_id;
}

} // namespace

void bind_devices(std::vector<site_device> devices, arrival how) {
    std::vector<product_of_device> told;
    {
        lasting_change change;
        std::vector<device_record *> known;
        for (site_device &device : devices) {
            if (is_own_id(device.id())) {
                throw refused(device.id() + " is the gateway itself");
            }
            device.set("state", int64_t{DEV_STATE_BOUND});
            known.push_back(find_listed_device(device.id()));
            if (how == arrival::joined || !is_bound(known.back())) {
                told.push_back({device.id(), {}});
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
        for (product_of_device &each : told) {
            each.pid = product_of(need_listed_device(each.dev_id));
        }
    }
    for (const product_of_device &each : told) {
        engr_lan_sub_dev_bind_report(each.dev_id.c_str(), each.pid.c_str());
    }
}

} // namespace gateway

using namespace gateway;

int32_t gw_engineer_add_sub_dev_to_list(const char *payload, uint32_t length) {
    return service(
        call("gw_engineer_add_sub_dev_to_list"),
        [&](call_arguments &list) { list.bytes("payload", payload, length); },
        [&] {
            return guarded([&] {
                std::vector<site_device> devices;
                read_request(payload, length,
                             [&](const json_value &request) { devices = read_products(request); });
                bind_devices(std::move(devices), arrival::bound);
            });
        });
}

int32_t engr_gw_cntl_init_local(int32_t *channel) {
    return service(call("engr_gw_cntl_init_local"), no_arguments, [&] {
        const platform::held_mutex guard(the_gateway().shared.field_mutex);
        *channel = the_gateway().channel;
        return 0;
    });
}

int32_t engr_gw_unbind_device_inner(dev_cntl_t *device) {
    return service(
        call("engr_gw_unbind_device_inner"),
        [&](call_arguments &list) { list.device("dev_id", device); },
        [&] {
            if (device == nullptr) {
                return result_argument;
            }
            return guarded([&] {
                const std::string dev_id = unbind(*static_cast<device_record *>(device));
                engr_lan_sub_dev_unbind_report(dev_id.c_str());
            });
        });
}
