// The gateway as a whole: opening and closing, and what its host changes and sees.
#include "gateway_services/gateway.h"

#include "calls.h"
#include "calls_state.h"
#include "data_points.h"
#include "engineering.h"
#include "gateway/gateway.h"
#include "gateway_services/error.h"
#include "network.h"
#include "platform/owners.h"
#include "store.h"

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
    if (of == nullptr)
        throw usage_error("no such field; there are: " + field_names(fields));
    return *of;
}

device_record &known_device(std::string_view dev_id) {
    device_record *device = find_device(dev_id);
    if (device == nullptr)
        throw refused("the gateway has no device '" + std::string(dev_id) + "'");
    return *device;
}

/** A value for a message or a reply: the name of what is wrong stands before what is wrong. */
field_value named_value(const field &of, const std::string &text) {
    try {
        return value_from_text(of, text);
    } catch (const usage_error &error) {
        throw usage_error(std::string(of.name) + " " + error.what());
    }
}

nlohmann::ordered_json record_status() {
    auto shown = nlohmann::ordered_json::object();
    const platform::held_mutex guard(the_gateway().shared.field_mutex);
    for (const field &of : gateway_fields()) {
        if (of.secret)
            continue;
        const field_value value = read_field(&the_gateway(), of);
        if (is_number(of))
            shown[of.name] = std::get<int64_t>(value);
        else
            shown[of.name] = std::get<std::string>(value);
    }
    return shown;
}

} // namespace

store &the_store() {
    return *open_store;
}

static void open_parts(open_options &&options) {
    open_store = std::make_unique<store>(options.store_path);
    store_was_new = open_store->is_new();
    if (store_was_new)
        open_store->begin_life(options.initial_site);
    const site stored = open_store->load();
    const std::string own_dps = open_store->setting(own_device_dps_setting);
    extended_state = 0;
    open_calls(options.faults, std::move(options.trace));
    open_network(std::move(options.address));
    open_records(stored, own_dps.empty() ? "{}" : own_dps);
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
    close_engineering();
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
    const field_value checked = named_value(of, value);
    const platform::held_mutex change(change_mutex());
    the_store().set_gateway_field(of, checked);
    const platform::held_mutex guard(the_gateway().shared.field_mutex);
    write_field(&the_gateway(), of, checked);
}

void set_device_field(std::string_view dev_id, std::string_view name, const std::string &value) {
    const field &of = known_field(device_fields().subspan(1), name);
    const field_value checked = named_value(of, value);
    device_record &device = known_device(dev_id);
    if (!is_listed(device))
        throw refused("'" + std::string(dev_id) +
                      "' is the gateway itself, not one of its devices");
    const platform::held_mutex change(change_mutex());
    the_store().set_device_field(device.dev_id, of, checked);
    const platform::held_mutex guard(the_gateway().shared.dev_mutex);
    write_field(static_cast<dev_cntl_t *>(&device), of, checked);
}

int32_t report_data_points(std::string_view dev_id, std::string_view dps) {
    if (const std::string fault = data_points_fault(dps); !fault.empty())
        throw usage_error(fault);
    return change_data_points(known_device(dev_id), dps);
}

nlohmann::ordered_json status() {
    nlohmann::ordered_json all;
    all["gateway"] = record_status();
    all["ext_stat"] = extended_state.load();
    all["devices"] = std::atomic_ref(the_gateway().shared.dev_count).load();
    add_network_status(all);
    add_engineering_status(all);
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
        [&] { extended_state = new_state; });
}
