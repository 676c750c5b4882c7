// The site of a gateway that was started without one: a small house with devices of several kinds.
#include "gateway_services/site.h"

#include "gateway/records.h"

#include <arpa/inet.h>

#include <cstdio>

namespace gateway {
namespace {

/** Some devices of one kind. */
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

} // namespace

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
