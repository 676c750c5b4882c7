#include "gateway_services/host.h"

#include "calls/calls.h"
#include "contracts/callbacks.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/owners.h"
#include "store/changes.h"
#include "store/products.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/config_files.h"
#include "subjects/configuration.h"
#include "subjects/firmware_install.h"
#include "subjects/groups.h"
#include "subjects/installer.h"
#include "subjects/joining.h"
#include "subjects/linkage.h"
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
    calls_init(options.faults, std::move(options.trace), std::move(options.trace_soon));
    network_init(std::move(options.address));
    records_init(stored, own_dps.empty() ? std::string(no_data_points) : own_dps);
    products_init(stored.products);
    joining_init(std::move(stored.joining));
    load_linkage();
    upgrade_init(options.faults.upgrade, keeps_files ? image_medium::file : image_medium::memory);
    station_init();
    config_files_init(keeps_files);
    log_snapshots_init(std::move(options.newest_log));
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
    station_shutdown();
    upgrade_stop();
    calls_close();
    upgrade_shutdown();
    config_files_shutdown();
    joining_shutdown();
    log_snapshots_shutdown();
    scenes_shutdown();
    records_shutdown();
    network_shutdown();
    calls_shutdown();
    open_store.reset();
}

bool used_initial_site() {
    return store_was_new;
}

void set_gateway_field(std::string_view name, const std::string &value) {
    const field &of = need_field(gateway_fields(), name);
    change_gateway_fields({{&of, value_from_text(of, value)}});
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
