// The gateway as a whole: opening and closing, and what its host changes and sees.
#include "gateway_services/host.h"

#include "calls/calls.h"
#include "calls/calls_state.h"
#include "gateway/gateway.h"
#include "gateway_services/error.h"
#include "platform/owners.h"
#include "store/products.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/config_files.h"
#include "subjects/configuration.h"
#include "subjects/data_points.h"
#include "subjects/firmware_install.h"
#include "subjects/groups.h"
#include "subjects/installer.h"
#include "subjects/joining.h"
#include "subjects/log_snapshots.h"
#include "subjects/network.h"
#include "subjects/scenes.h"
#include "subjects/station.h"
#include "subjects/upgrade.h"

#include <nlohmann/json.hpp>

#include <atomic>
#include <memory>

namespace gateway {
namespace {

std::unique_ptr<store> open_store;
bool store_was_new;
/** Belongs to what the gateway is doing, not to what it is, and so ends with the process. */
std::atomic<uint8_t> extended_state;

const field &known_field(std::span<const field> fields, std::string_view name) {
    const field *of = find_field(fields, name);
    if (of == nullptr) {
        throw usage_error("no such field; there are: " + field_names(fields));
    }
    return *of;
}

nlohmann::ordered_json record_status() {
    auto shown = nlohmann::ordered_json::object();
    const platform::held_mutex guard(the_gateway().shared.field_mutex);
    for (const field &of : gateway_fields()) {
        if (of.secret) {
            continue;
        }
        const field_value value = read_field(&the_gateway(), of);
        if (is_number(of)) {
            shown[of.name] = std::get<int64_t>(value);
        } else {
            shown[of.name] = std::get<std::string>(value);
        }
    }
    return shown;
}

} // namespace

store &the_store() {
    return *open_store;
}

static void open_parts(open_options &&options) {
    const bool keeps_files = options.store_path != memory_database;
    if (keeps_files) {
        empty_partial_image(); // it may have all the room that the store needs
    }
    open_store = std::make_unique<store>(options.store_path);
    store_was_new = open_store->is_new();
    if (store_was_new) {
        open_store->begin_life(options.initial_site);
    } else {
        open_store->update_schema();
    }
    if (keeps_files) {
        recover_installation();
    }
    site stored = open_store->load();
    const std::string own_dps = open_store->setting(own_device_dps_setting);
    extended_state = 0;
    open_calls(options.faults, std::move(options.trace), std::move(options.trace_soon));
    open_network(std::move(options.address));
    open_records(stored, own_dps.empty() ? "{}" : own_dps);
    open_products(stored.products);
    open_joining(std::move(stored.joining));
    open_linkage();
    open_upgrades(options.faults.upgrade, keeps_files ? image_medium::file : image_medium::memory);
    open_access_points();
    open_config_files(keeps_files);
    open_log_snapshots(std::move(options.newest_log));
    install_callbacks();
}

void open(open_options options) {
    try {
        open_parts(std::move(options));
    } catch (...) {
        close();
        throw;
    }
}

void close() {
    close_access_points();
    stop_upgrades();
    end_calls();
    close_upgrades();
    close_config_files();
    shut_joining();
    close_log_snapshots();
    close_scenes();
    close_records();
    close_network();
    close_calls();
    open_store.reset();
}

bool used_initial_site() {
    return store_was_new;
}

void set_gateway_field(std::string_view name, const std::string &value) {
    const field &of = known_field(gateway_fields(), name);
    const field_value checked = value_from_text(of, value);
    const platform::held_mutex change(change_mutex());
    the_store().set_gateway_field(of, checked);
    const platform::held_mutex guard(the_gateway().shared.field_mutex);
    write_field(&the_gateway(), of, checked);
}

void set_device_field(std::string_view dev_id, std::string_view name, const std::string &value) {
    const field &of = known_field(device_fields().subspan(1), name);
    const field_value checked = value_from_text(of, value);
    const platform::held_mutex change(change_mutex());
    dev_cntl_t &device = need_listed_device(dev_id);
    the_store().set_device_field(dev_id, of, checked);
    const platform::held_mutex guard(the_gateway().shared.dev_mutex);
    write_field(&device, of, checked);
}

int32_t report_data_points(std::string_view dev_id, std::string_view dps) {
    if (const std::string fault = data_points_fault(dps); !fault.empty()) {
        throw usage_error(fault);
    }
    return change_data_points({{std::string(dev_id), std::string(dps)}}, change_origin::device);
}

nlohmann::ordered_json status() {
    nlohmann::ordered_json all;
    all["gateway"] = record_status();
    all["ext_stat"] = extended_state.load();
    all["devices"] = std::atomic_ref(the_gateway().shared.dev_count).load();
    add_network_status(all);
    {
        const platform::held_mutex change(change_mutex());
        add_installation_status(all);
        add_joining_status(all);
        add_groups_status(all);
        add_scenes_status(all);
        add_linkage_status(all);
        add_configuration_status(all);
    }
    add_log_status(all);
    add_upgrade_status(all);
    all["faults"] = faults_status();
    all["callbacks"] = callbacks_status();
    return all;
}

} // namespace gateway

using namespace gateway;

gw_cntl_t *engr_get_gw_cntl(void) {
    return &the_gateway().shared;
}

uint8_t engr_get_gw_ext_stat(void) {
    return service(call("engr_get_gw_ext_stat"), no_arguments,
                   [] { return extended_state.load(); });
}

void engr_set_gw_ext_stat(uint8_t new_state) {
    service(
        call("engr_set_gw_ext_stat"),
        [&](call_arguments &list) { list.number("state", new_state); },
        [&] {
            extended_state = new_state;
            if (new_state == GW_EXT_STAT_UPGRADE_ENDED) {
                note_upgrade_end();
            }
        });
}
