// The site of a gateway that was started without one: a small house with devices of several kinds.
#include "gateway_services/site.h"

#include "gateway/records.h"

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

field_setting setting(std::span<const field> fields, const char *name, field_value value) {
    return {find_field(fields, name), std::move(value)};
}

/** An id like the 64-bit address of a Zigbee device. */
std::string device_id(std::size_t kind, int number) {
    char id[DEV_ID_SIZE];
    std::snprintf(id, sizeof id, "a4c138%04hx%06hx", static_cast<unsigned short>(kind + 1),
                  static_cast<unsigned short>(number + 1));
    return id;
}

} // namespace

std::vector<field_setting> default_gateway() {
    const auto set = [](const char *name, field_value value) {
        return setting(gateway_fields(), name, std::move(value));
    };
    return {
        set("gw_id", "engrgw0000000001"),
        set("alt_gw_id", "engrgwalt0000001"),
        set("gw_sw_ver", "1.0.0"),
        set("disc_version", "3.3"),
        set("product_key", "engrgateway00001"),
        set("channel", int64_t{15}),
        set("ak_ident1", "engr-gateway"),
        set("ak_ident2", "engrgw0000000001"),
    };
}

site demo_site() {
    const auto set = [](const char *name, field_value value) {
        return setting(device_fields(), name, std::move(value));
    };
    site demo;
    demo.gateway = default_gateway();
    for (std::size_t kind = 0; kind < std::size(kinds); ++kind) {
        for (int number = 0; number < kinds[kind].count; ++number) {
            const bool online = number < kinds[kind].count - kinds[kind].offline;
            demo.devices.push_back(
                {{set("dev_id", device_id(kind, number)), set("sw_ver", kinds[kind].sw_ver),
                  set("pid", kinds[kind].pid), set("online", int64_t{online})},
                 kinds[kind].dps});
        }
    }
    return demo;
}

} // namespace gateway
