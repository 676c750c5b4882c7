#include "gateway_services/site.h"

#include "gateway_services/error.h"
#include "store/products.h"
#include "support/data_points.h"
#include "support/json_value.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace gateway {
namespace {

using support::json_value;

constexpr int64_t join_after_ms_max = 3'600'000;

field_value value_from_file(const field &of, const json_value &from) {
    field_value value;
    if (is_number(of)) {
        if (of.is_flag && from.json.is_boolean()) {
            value = int64_t{from.json.get<bool>()};
        } else {
            value = from.whole_number(of.lowest, of.highest);
        }
    } else {
        value = from.text();
    }
    try {
        check_value(of, value);
    } catch (const usage_error &error) {
        from.refuse(error.what());
    }
    return value;
}

std::vector<field_setting> read_gateway(const json_value &from, uint32_t number) {
    std::vector<field_setting> settings = default_gateway(number);
    for (const auto &[name, value] : from.members()) {
        const field *of = find_field(gateway_fields(), name);
        if (of == nullptr) {
            value.refuse_unknown(field_names(gateway_fields()));
        }
        settings.push_back({of, value_from_file(*of, value)});
    }
    return settings;
}

/**
 * Reads a device.
 *
 * @param join_after_ms  gets the member of that name; null: the device does not join later, and has
 * none
 */
void read_device(const json_value &from, site_device &device, uint32_t *join_after_ms) {
    for (const auto &[name, value] : from.members()) {
        if (name == "dps") {
            support::check_data_points(value, text_value_bytes_max);
            device.dps = value.json.dump();
        } else if (join_after_ms != nullptr && name == "join_after_ms") {
            *join_after_ms = static_cast<uint32_t>(value.whole_number(0, join_after_ms_max));
        } else if (const field *of = find_field(device_fields(), name)) {
            device.fields.push_back({of, value_from_file(*of, value)});
        } else {
            value.refuse_unknown(fmt::format("{}, dps{}", field_names(device_fields()),
                                             join_after_ms != nullptr ? ", join_after_ms" : ""));
        }
    }
    (void)from.required("dev_id");
}

/**
 * Reads a list of devices.
 *
 * @param ids  those of all lists so far
 */
template <typename Device>
std::vector<Device> read_devices(const json_value &from, std::set<std::string> &ids) {
    std::vector<Device> devices;
    for (const json_value &element : from.elements()) {
        Device &device = devices.emplace_back();
        if constexpr (std::is_same_v<Device, joining_device>) {
            read_device(element, device, &device.join_after_ms);
        } else {
            read_device(element, device, nullptr);
        }
        if (!ids.insert(device.id()).second) {
            element.required("dev_id").refuse(fmt::format("'{}' is given twice", device.id()));
        }
    }
    return devices;
}

/**
 * Compares the data points of devices with what their products have.
 *
 * @param list  its name
 */
template <typename Device>
void check_devices(const std::vector<Device> &devices, const product_table &products,
                   const std::string &list) {
    for (std::size_t i = 0; i < devices.size(); ++i) {
        const field_value *pid = devices[i].find("pid");
        const std::string fault =
            product_fault(products, pid != nullptr ? std::get<std::string>(*pid) : "",
                          nlohmann::ordered_json::parse(devices[i].dps), setter::device);
        if (!fault.empty()) {
            throw usage_error(fmt::format("{}[{}].dps: {}", list, i, fault));
        }
    }
}

} // namespace

void site_device::set(std::string_view name, field_value value) {
    const field *of = find_field(device_fields(), name);
    std::erase_if(fields, [&](const field_setting &setting) { return setting.of == of; });
    fields.push_back({of, std::move(value)});
}

const std::string &site_device::id() const {
    return std::get<std::string>(*find("dev_id"));
}

const field_value *site_device::find(std::string_view name) const {
    const auto found =
        std::find_if(fields.begin(), fields.end(),
                     [&](const field_setting &setting) { return setting.of->name == name; });
    return found == fields.end() ? nullptr : &found->value;
}

site parse_site(std::string_view text, const std::string &file_name, uint32_t number) {
    const support::json_document file(text, file_name);
    site read;
    read.gateway = default_gateway(number);
    std::set<std::string> ids;
    product_table products;
    support::read_members(
        file.root(),
        {{"gateway", [&](const json_value &from) { read.gateway = read_gateway(from, number); }},
         {"products",
          [&](const json_value &from) {
              products = read_product_table(from);
              read.products = from.json.dump();
          }},
         {"devices",
          [&](const json_value &from) { read.devices = read_devices<site_device>(from, ids); }},
         {"joining", [&](const json_value &from) {
              read.joining = read_devices<joining_device>(from, ids);
          }}});
    check_devices(read.devices, products, file_name + ": devices");
    check_devices(read.joining, products, file_name + ": joining");
    return read;
}

} // namespace gateway
