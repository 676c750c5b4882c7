#include "gateway_services/host.h"

#include "calls/activity.h"
#include "calls/calls.h"
#include "contracts/callbacks.h"
#include "platform/owners.h"
#include "store/arrangement.h"
#include "store/products.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/configuration.h"
#include "subjects/firmware.h"
#include "subjects/groups.h"
#include "subjects/installer.h"
#include "subjects/joining.h"
#include "subjects/log_snapshots.h"
#include "subjects/network.h"
#include "subjects/scenes.h"
#include "subjects/station.h"
#include "subjects/upgrade.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <span>
#include <variant>

namespace gateway {
namespace {

bool store_was_new;

/** The fields of a record that are no secrets; its mutex is held. */
nlohmann::ordered_json shown_fields(const void *record, std::span<const field> fields) {
    auto shown = nlohmann::ordered_json::object();
    for (const field &of : fields) {
        if (!of.secret) {
            std::visit([&](const auto &value) { shown[of.name] = value; }, read_field(record, of));
        }
    }
    return shown;
}

nlohmann::ordered_json record_status() {
    const platform::held_mutex guard(the_gateway().shared.field_mutex);
    return shown_fields(&the_gateway(), gateway_fields());
}

/** Lists what the store holds: the devices of the site that it was just filled with, or those that
 * are read back. */
void list_devices(site first) {
    if (store_was_new) {
        expect_devices(first.devices.size());
        std::ranges::for_each(first.devices, list_device);
    } else {
        expect_devices(the_store().device_count());
        the_store().load_devices(list_device);
    }
}

void open_parts(open_options &&options) {
    activity_init(std::move(options.activity), std::move(options.asking_app));
    const bool keeps_files = options.store_path != memory_database;
    if (keeps_files) {
        empty_partial_image(); // it may have all the room that the store needs
    }
    store_init(options.store_path);
    store_was_new = the_store().is_new();
    if (store_was_new) {
        the_store().begin_life(options.initial_site);
    } else {
        the_store().update_schema();
    }
    if (keeps_files) {
        recover_installation();
    }
    site stored = the_store().load();
    const std::string own_dps = the_store().setting(own_device_dps_setting);
    calls_init(options.faults,
               {std::move(options.trace), std::move(options.trace_soon), std::move(options.call)});
    network_init(std::move(options.address));
    records_init(stored, own_dps.empty() ? std::string(no_data_points) : own_dps);
    list_devices(std::move(options.initial_site));
    products_init(stored.products);
    joining_init(std::move(stored.joining));
    load_linkage();
    upgrade_init(options.faults.upgrade, keeps_files ? image_medium::file : image_medium::memory,
                 std::move(options.installing_ms));
    station_init();
    configuration_init(keeps_files);
    log_snapshots_init(std::move(options.newest_log));
    install_callbacks();
}

} // namespace

void open(open_options options) {
    try {
        open_parts(std::move(options));
    } catch (...) {
        close();
        throw;
    }
}

void close() {
    station_shutdown();
    upgrade_stop();
    calls_close();
    upgrade_shutdown();
    configuration_shutdown();
    joining_shutdown();
    log_snapshots_shutdown();
    scenes_shutdown();
    records_shutdown();
    network_shutdown();
    calls_shutdown();
    activity_shutdown();
    store_shutdown();
}

bool used_initial_site() {
    return store_was_new;
}

std::string stored_site() {
    const platform::held_mutex change(change_mutex());
    site stored = the_store().load();
    the_store().load_devices(
        [&stored](const site_device &device) { stored.devices.push_back(device); });
    stored.arrangement = stored_arrangement(the_store()).dump();
    return site_text(stored);
}

std::string local_key() {
    const gw_cntl_t &gateway = the_gateway().shared;
    const platform::held_mutex guard(gateway.field_mutex);
    const field &of = need_field(gateway_fields(), "local_key");
    return std::get<std::string>(read_field(&the_gateway(), of));
}

nlohmann::ordered_json status() {
    nlohmann::ordered_json all;
    all["gateway"] = record_status();
    all["ext_stat"] = extended_state().load();
    all["devices"] = std::atomic_ref(the_gateway().shared.dev_count).load();
    add_network_status(all);
    {
        const platform::held_mutex change(change_mutex());
        add_installer_status(all);
        add_joining_status(all);
        add_groups_status(all);
        add_scenes_status(all);
        add_configuration_status(all);
    }
    add_log_status(all);
    add_upgrade_status(all);
    all["faults"] = faults_status();
    all["callbacks"] = callbacks_status();
    return all;
}

nlohmann::ordered_json devices() {
    auto all = nlohmann::ordered_json::array();
    {
        const gw_cntl_t &gateway = the_gateway().shared;
        const platform::held_mutex guard(gateway.dev_mutex);
        for (const dev_cntl_t *each = gateway.dev_list; each != nullptr; each = each->next) {
            all.push_back(shown_fields(each, device_fields()));
            all.back()["dps"] = static_cast<const device_record *>(each)->dps;
        }
    }
    for (nlohmann::ordered_json &each : all) {
        each["dps"] = nlohmann::ordered_json::parse(each["dps"].get<std::string>());
    }
    return all;
}

} // namespace gateway
