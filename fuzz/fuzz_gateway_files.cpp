// Files that people give to the reference gateway. The first byte chooses: a site or a scenario.
//
// What is wrong is said as a usage error. What is taken is valid: each value suits its field, each
// id occurs once, and reading it again gives the same.
#include "gateway_services/error.h"
#include "gateway_services/scenario.h"
#include "gateway_services/site.h"
#include "support/require.h"

#include <nlohmann/json.hpp>

#include <set>
#include <string>

namespace {

using fuzz::require;

void check_fields(const std::vector<gateway::field_setting> &settings) {
    for (const gateway::field_setting &one : settings) {
        gateway::check_value(*one.of, one.value);
    }
}

bool same_fields(const std::vector<gateway::field_setting> &one,
                 const std::vector<gateway::field_setting> &other) {
    return std::ranges::equal(one, other, [](const auto &left, const auto &right) {
        return left.of == right.of && left.value == right.value;
    });
}

void read_site(std::string_view text) {
    const gateway::site read = gateway::parse_site(text, "site");
    check_fields(read.gateway);
    std::set<std::string> ids;
    const auto check = [&ids](const gateway::site_device &device) {
        check_fields(device.fields);
        require(ids.insert(device.id()).second, "each id to occur once");
        require(nlohmann::json::parse(device.dps).is_object(), "data points to be an object");
    };
    for (const gateway::site_device &device : read.devices) {
        check(device);
    }
    for (const gateway::joining_device &device : read.joining) {
        check(device);
    }
    const gateway::site again = gateway::parse_site(text, "site");
    require(same_fields(read.gateway, again.gateway) && read.products == again.products &&
                read.devices.size() == again.devices.size(),
            "the same text to be the same site");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view rest(reinterpret_cast<const char *>(data) + 1, size - 1);
    try {
        if (data[0] == 's') {
            read_site(rest);
        } else {
            static_cast<void>(gateway::parse_scenario(rest, "scenario"));
        }
    } catch (const gateway::usage_error &error) {
        require(error.what()[0] != '\0', "words for what is wrong");
    }
    return 0;
}
