#include "gateway_services/site.h"
#include "gateway/records.h"
#include "gateway_services/error.h"
#include "store/arrangement.h"
#include "store/products.h"
#include "support/data_points.h"
#include "support/json_value.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <unordered_set>

namespace gateway {
namespace {

using nlohmann::ordered_json;
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
    const auto members = from.members();
    device.fields.reserve(members.size());
    for (const auto &[name, value] : members) {
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
    if (device.find(device_fields().front()) == nullptr) {
        from.refuse("has no dev_id");
    }
}

/**
 * Reads a list of devices.
 *
 * @param ids  those of all lists so far; the new ones are in the devices that are returned
 */
template <typename Device>
std::vector<Device> read_devices(const json_value &from,
                                 std::unordered_set<std::string_view> &ids) {
    const std::vector<json_value> elements = from.elements();
    std::vector<Device> devices;
    devices.reserve(elements.size());
    ids.reserve(ids.size() + elements.size());
    for (const json_value &element : elements) {
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
        const field_value *value = devices[i].find("pid");
        const std::string_view pid =
            value != nullptr ? std::get<std::string>(*value) : std::string_view();
        if (!products.contains(pid)) {
            continue; // takes any values
        }
        try {
            check_product_values(products, pid, nlohmann::ordered_json::parse(devices[i].dps),
                                 setter::device);
        } catch (const refused &error) {
            throw usage_error(fmt::format("{}[{}].dps: {}", list, i, error.what()));
        }
    }
}

/** Some devices of one kind of the built-in site. */
struct device_kind {
    const char *pid;
    const char *sw_ver;
    const char *dps;
    int count;
    int offline; /**< the last so many are offline */
};

constexpr device_kind kinds[] = {
    {"zbswitch2gang001", "1.2.4", R"({"1":true,"2":false})", 12, 2},
    {"zbdimmer00000001", "1.0.9", R"({"1":true,"2":640,"3":"white"})", 8, 1},
    {"zbtempsensor0001", "2.1.0", R"({"1":214,"2":47,"4":93})", 8, 1},
    {"zbcurtain0000001", "1.1.3", R"({"1":"stop","2":50})", 4, 0},
    {"zbthermostat0001", "1.4.2", R"({"1":true,"2":210,"3":198,"4":"auto"})", 4, 1},
};

/** Devices that join while joining is open. */
constexpr device_kind joining_kinds[] = {
    {"zbswitch2gang001", "1.2.4", R"({"1":false,"2":false})", 2, 0},
    {"zbpanel4gang0001", "1.0.1", R"({"1":1})", 1, 0},
};
constexpr std::size_t first_joining_kind = 0x100;

/** What the data points of these products are. */
constexpr const char *demo_products = R"({
    "zbswitch2gang001": {"1": {"kind": "bool"}, "2": {"kind": "bool"}},
    "zbdimmer00000001": {
        "1": {"kind": "bool"},
        "2": {"kind": "value", "min": 10, "max": 1000},
        "3": {"kind": "enum", "values": ["white", "colour", "scene"]}},
    "zbtempsensor0001": {
        "1": {"kind": "value", "min": -400, "max": 850, "read_only": true},
        "2": {"kind": "value", "min": 0, "max": 100, "read_only": true},
        "4": {"kind": "value", "min": 0, "max": 100, "read_only": true}},
    "zbcurtain0000001": {
        "1": {"kind": "enum", "values": ["open", "stop", "close"]},
        "2": {"kind": "value", "min": 0, "max": 100}},
    "zbthermostat0001": {
        "1": {"kind": "bool"},
        "2": {"kind": "value", "min": 50, "max": 350},
        "3": {"kind": "value", "min": -400, "max": 850, "read_only": true},
        "4": {"kind": "enum", "values": ["auto", "manual", "holiday"]}},
    "zbpanel4gang0001": {"1": {"kind": "value", "min": 1, "max": 4, "read_only": true}}
})";

ordered_json fields_text(const std::vector<field_setting> &fields) {
    auto object = ordered_json::object();
    for (const field_setting &setting : fields) {
        std::visit([&](const auto &value) { object[setting.of->name] = value; }, setting.value);
    }
    return object;
}

ordered_json device_text(const site_device &device) {
    ordered_json object = fields_text(device.fields);
    object["dps"] = ordered_json::parse(device.dps);
    return object;
}

/** An id like the 64-bit address of a Zigbee device. */
std::string device_id(std::size_t kind, int number) {
    char id[DEV_ID_SIZE];
    std::snprintf(id, sizeof id, "a4c138%04hx%06hx", static_cast<unsigned short>(kind + 1),
                  static_cast<unsigned short>(number + 1));
    return id;
}

/**
 * Appends the devices of some kinds.
 *
 * @param first  number of the first kind
 */
template <typename Device>
void add_devices(std::vector<Device> &devices, std::span<const device_kind> from,
                 std::size_t first) {
    for (std::size_t kind = 0; kind < from.size(); ++kind) {
        for (int number = 0; number < from[kind].count; ++number) {
            Device &device = devices.emplace_back();
            device.set("dev_id", device_id(first + kind, number));
            device.set("sw_ver", from[kind].sw_ver);
            device.set("pid", from[kind].pid);
            device.set("online", int64_t{number < from[kind].count - from[kind].offline});
            device.dps = from[kind].dps;
        }
    }
}

/** A text that ends with a number. */
std::string numbered(const char *format, uint32_t number) {
    char text[DEV_ID_SIZE];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

/** Groups and panels are made of devices in the list. Actions and buttons may have outlived theirs.
 */
void check_arranged(const ordered_json &arranged, const std::vector<site_device> &devices,
                    const std::string &file_name) {
    if (arranged.empty()) {
        return;
    }
    std::unordered_set<std::string_view> ids(devices.size());
    for (const site_device &device : devices) {
        ids.insert(device.id());
    }
    const auto check = [&](const char *list, const ordered_json &cid) {
        if (!ids.contains(cid.get_ref<const std::string &>())) {
            throw usage_error(fmt::format("{}: {}: '{}' is none of the devices", file_name, list,
                                          cid.get_ref<const std::string &>()));
        }
    };
    for (const ordered_json &group : arranged.value("groups", ordered_json::array())) {
        for (const ordered_json &cid : group["cids"]) {
            check("groups", cid);
        }
    }
    for (const ordered_json &panel : arranged.value("panels", ordered_json::array())) {
        check("panels", panel["cid"]);
    }
}

/** Adds what apps have made of the devices to a site file, but no empty lists. */
void add_arrangement(ordered_json &whole, const ordered_json &arranged) {
    for (const char *list : {"groups", "scenes", "panels"}) {
        if (arranged.contains(list) && !arranged[list].empty()) {
            whole[list] = arranged[list];
        }
    }
    if (arranged.contains("linkage") && !arranged["linkage"]["modified"].is_null()) {
        whole["linkage"] = arranged["linkage"];
    }
}

} // namespace

void site_device::set(std::string_view name, field_value value) {
    const field *of = find_field(device_fields(), name);
    std::erase_if(fields, [&](const field_setting &setting) { return setting.of == of; });
    fields.push_back({of, std::move(value)});
}

const std::string &site_device::id() const {
    return std::get<std::string>(*find(device_fields().front()));
}

const field_value *site_device::find(const field &of) const {
    const auto found =
        std::find_if(fields.begin(), fields.end(),
                     [&](const field_setting &setting) { return setting.of == &of; });
    return found == fields.end() ? nullptr : &found->value;
}

const field_value *site_device::find(std::string_view name) const {
    return find(*find_field(device_fields(), name));
}

site parse_site(std::string_view text, const std::string &file_name, uint32_t number) {
    const support::json_document file(text, file_name);
    site read;
    read.gateway = default_gateway(number);
    std::unordered_set<std::string_view> ids;
    product_table products;
    auto arranged = ordered_json::object();
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
         {"joining",
          [&](const json_value &from) { read.joining = read_devices<joining_device>(from, ids); }},
         {"groups", [&](const json_value &from) { arranged["groups"] = read_groups(from); }},
         {"scenes", [&](const json_value &from) { arranged["scenes"] = read_scenes(from); }},
         {"panels", [&](const json_value &from) { arranged["panels"] = read_panels(from); }},
         {"linkage", [&](const json_value &from) { arranged["linkage"] = read_linkage(from); }}});
    check_devices(read.devices, products, file_name + ": devices");
    check_devices(read.joining, products, file_name + ": joining");
    check_arranged(arranged, read.devices, file_name);
    read.arrangement = arranged.empty() ? "" : arranged.dump();
    return read;
}

std::string site_text(const site &of) {
    ordered_json whole{{"gateway", fields_text(of.gateway)}};
    whole["products"] =
        of.products.empty() ? ordered_json::object() : ordered_json::parse(of.products);
    whole["devices"] = ordered_json::array();
    for (const site_device &device : of.devices) {
        whole["devices"].push_back(device_text(device));
    }
    whole["joining"] = ordered_json::array();
    for (const joining_device &device : of.joining) {
        whole["joining"].push_back(device_text(device));
        whole["joining"].back()["join_after_ms"] = device.join_after_ms;
    }
    if (!of.arrangement.empty()) {
        add_arrangement(whole, ordered_json::parse(of.arrangement));
    }
    // A network's name may have come by air, in any bytes.
    return whole.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

uint32_t gateway_number(const std::string &address) {
    constexpr uint32_t loopback_network = 127U << 24;
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1) {
        return first_gateway_number;
    }
    const uint32_t number = ntohl(parsed.s_addr);
    return number >> 24 == 127 ? number - loopback_network : number;
}

std::vector<field_setting> default_gateway(uint32_t number) {
    const auto set = [](const char *name, field_value value) {
        return field_setting{find_field(gateway_fields(), name), std::move(value)};
    };
    const std::string gw_id = numbered("engrgw%010u", number);
    return {
        set("gw_id", gw_id),
        set("alt_gw_id", numbered("engrgwalt%07u", number)),
        set("gw_sw_ver", "1.0.0"),
        set("disc_version", "3.3"),
        set("product_key", "engrgateway00001"),
        set("channel", int64_t{15}),
        set("ak_ident1", "engr-gateway"),
        set("ak_ident2", gw_id),
    };
}

site demo_site(uint32_t number) {
    site demo;
    demo.gateway = default_gateway(number);
    add_devices(demo.devices, kinds, 0);
    add_devices(demo.joining, joining_kinds, first_joining_kind);
    demo.products = demo_products;
    return demo;
}

} // namespace gateway
