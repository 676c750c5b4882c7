#include "gateway_services/site.h"

#include "data_points.h"
#include "file_reader.h"

#include <nlohmann/json.hpp>

#include <set>

namespace gateway {
namespace {

field_value value_from_file(const field &of, const file_value &from) {
    field_value value;
    if (is_number(of)) {
        if (of.is_flag && from.json.is_boolean())
            value = int64_t{from.json.get<bool>()};
        else
            value = from.whole_number(of.lowest, of.highest);
    } else if (from.json.is_string()) {
        value = from.json.get<std::string>();
    } else {
        from.refuse(std::string("is ") + from.json.type_name() + ", expected a text");
    }
    try {
        check_value(of, value);
    } catch (const usage_error &error) {
        from.refuse(error.what());
    }
    return value;
}

std::vector<field_setting> read_gateway(const file_value &from) {
    from.need_object();
    std::vector<field_setting> settings = default_gateway();
    for (const auto &[name, value] : from.json.items()) {
        const file_value member = from.member(name, value);
        const field *of = find_field(gateway_fields(), name);
        if (of == nullptr)
            member.refuse_unknown(field_names(gateway_fields()));
        settings.push_back({of, value_from_file(*of, member)});
    }
    return settings;
}

site_device read_device(const file_value &from) {
    from.need_object();
    site_device device;
    for (const auto &[name, value] : from.json.items()) {
        const file_value member = from.member(name, value);
        if (name == "dps") {
            if (const std::string fault = data_points_fault(value); !fault.empty())
                member.refuse(fault);
            device.dps = value.dump();
            continue;
        }
        const field *of = find_field(device_fields(), name);
        if (of == nullptr)
            member.refuse_unknown(field_names(device_fields()) + ", dps");
        device.fields.push_back({of, value_from_file(*of, member)});
    }
    return device;
}

std::vector<site_device> read_devices(const file_value &from) {
    from.need_array();
    std::vector<site_device> devices;
    std::set<std::string> ids;
    for (std::size_t i = 0; i < from.json.size(); ++i) {
        const file_value element = from.element(i);
        devices.push_back(read_device(element));
        const auto id = element.json.find("dev_id");
        if (id == element.json.end())
            element.refuse("has no dev_id");
        if (!ids.insert(id->get<std::string>()).second)
            element.member("dev_id", *id).refuse("'" + id->get<std::string>() + "' is given twice");
    }
    return devices;
}

} // namespace

site parse_site(std::string_view text, const std::string &file_name) {
    const auto json = parse_file(text, file_name);
    const file_value whole{file_name, "", json};
    whole.need_object();
    site read;
    read.gateway = default_gateway();
    for (const auto &[name, value] : json.items()) {
        const file_value member = whole.member(name, value);
        if (name == "gateway")
            read.gateway = read_gateway(member);
        else if (name == "devices")
            read.devices = read_devices(member);
        else
            member.refuse_unknown("gateway, devices");
    }
    return read;
}

} // namespace gateway
