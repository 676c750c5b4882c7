#include "store/products.h"

#include "gateway_services/error.h"
#include "gateway_services/fields.h"
#include "support/data_points.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <utility>

namespace gateway {
namespace {

using nlohmann::ordered_json;
using support::json_value;
using form = data_point_kind::form;

constexpr std::size_t choices_max = 100;

product_table stored_products;

void read_choices(const json_value &from, data_point_kind &kind) {
    for (const json_value &choice : from.elements(1, choices_max)) {
        kind.choices.push_back(choice.text());
    }
}

form read_form(const json_value &from) {
    constexpr std::pair<std::string_view, form> known[] = {{"bool", form::boolean},
                                                           {"value", form::number},
                                                           {"enum", form::choice},
                                                           {"text", form::text}};
    const std::string name = from.text();
    for (const auto &[of, read] : known) {
        if (of == name) {
            return read;
        }
    }
    from.refuse("is none of bool, value, enum, text");
}

data_point_kind read_kind(const json_value &from) {
    data_point_kind kind;
    kind.of = read_form(from.required("kind"));
    kind.bytes_max = text_value_bytes_max;
    std::vector<support::known_member> members = {
        {"kind", [](const json_value &) {}},
        {"read_only", [&](const json_value &value) { kind.is_read_only = value.boolean(); }}};
    const auto add_number = [&](const char *name, auto &number, int64_t lowest, int64_t highest) {
        members.push_back({name, [&number, lowest, highest](const json_value &value) {
                               number = static_cast<std::remove_reference_t<decltype(number)>>(
                                   value.whole_number(lowest, highest));
                           }});
    };
    if (kind.of == form::number) {
        add_number("min", kind.lowest, INT32_MIN, INT32_MAX);
        add_number("max", kind.highest, INT32_MIN, INT32_MAX);
    } else if (kind.of == form::choice) {
        (void)from.required("values");
        members.push_back({"values", [&](const json_value &value) { read_choices(value, kind); }});
    } else if (kind.of == form::text) {
        add_number("max_bytes", kind.bytes_max, 1, text_value_bytes_max);
    }
    support::read_members(from, members);
    if (kind.highest < kind.lowest) {
        from.refuse("max is below min");
    }
    return kind;
}

product read_product(const json_value &from) {
    product read;
    for (const auto &[name, value] : from.members()) {
        const int number = support::data_point_number(name);
        if (number == 0) {
            value.refuse("is not a data-point number, 1 to 255");
        }
        read[number] = read_kind(value);
    }
    return read;
}

void check_product_id(const json_value &of, const std::string &pid) {
    try {
        check_value(*find_field(device_fields(), "pid"), pid);
        if (pid.empty()) {
            throw usage_error("may not be empty");
        }
    } catch (const usage_error &error) {
        of.refuse(error.what());
    }
}

bool is_within(const ordered_json &value, int64_t lowest, int64_t highest) {
    if (!value.is_number_integer()) {
        return false;
    }
    if (value.is_number_unsigned() && value.get<uint64_t>() > INT64_MAX) {
        return false;
    }
    const auto number = value.get<int64_t>();
    return number >= lowest && number <= highest;
}

bool is_choice(const ordered_json &value, const std::vector<std::string> &choices) {
    return value.is_string() && std::find(choices.begin(), choices.end(),
                                          value.get_ref<const std::string &>()) != choices.end();
}

/** The values that a data point takes, for a message; empty when the given one is among them. */
std::string expected_values(const data_point_kind &kind, const ordered_json &value) {
    switch (kind.of) {
    case form::boolean:
        return value.is_boolean() ? "" : "true or false";
    case form::number:
        return is_within(value, kind.lowest, kind.highest)
                   ? ""
                   : fmt::format("a whole number, {} to {}", kind.lowest, kind.highest);
    case form::choice:
        return is_choice(value, kind.choices)
                   ? ""
                   : fmt::format("one of {}", fmt::join(kind.choices, ", "));
    case form::text:
        return value.is_string() && value.get_ref<const std::string &>().size() <= kind.bytes_max
                   ? ""
                   : fmt::format("a text of at most {} bytes", kind.bytes_max);
    }
    return "";
}

ordered_json first_value(const data_point_kind &kind) {
    switch (kind.of) {
    case form::boolean:
        return false;
    case form::number:
        return std::clamp<int64_t>(0, kind.lowest, kind.highest);
    case form::choice:
        return kind.choices.front();
    case form::text:
        return "";
    }
    return nullptr;
}

} // namespace

product_table read_product_table(const json_value &from) {
    product_table read;
    for (const auto &[pid, value] : from.members()) {
        check_product_id(value, pid);
        read[pid] = read_product(value);
    }
    return read;
}

void check_product_values(const product_table &products, std::string_view pid,
                          const ordered_json &dps, setter by) {
    const auto found = products.find(pid);
    if (found == products.end()) {
        return;
    }
    for (const auto &[name, value] : dps.items()) {
        const auto kind = found->second.find(support::data_point_number(name));
        if (kind == found->second.end()) {
            throw refused(fmt::format("product {} has no data point {}", pid, name));
        }
        const std::string point = fmt::format("data point {} of product {}", name, pid);
        if (by == setter::app && kind->second.is_read_only) {
            throw refused(point + " is read-only");
        }
        if (const std::string expected = expected_values(kind->second, value); !expected.empty()) {
            throw refused(point + " takes " + expected);
        }
    }
}

void products_init(const std::string &stored) {
    stored_products.clear();
    if (stored.empty()) {
        return;
    }
    try {
        const support::json_document products(stored, "the store is damaged: products");
        stored_products = read_product_table(products.root());
    } catch (const usage_error &error) {
        throw refused(error.what());
    }
}

const product_table &the_products() {
    return stored_products;
}

std::string first_data_points(std::string_view pid) {
    auto dps = ordered_json::object();
    if (const auto found = stored_products.find(pid); found != stored_products.end()) {
        for (const auto &[number, kind] : found->second) {
            dps[std::to_string(number)] = first_value(kind);
        }
    }
    return dps.dump();
}

} // namespace gateway
