// Validation by valijson. It finds the places; what is expected there is told by the schema's own
// descriptions, which editors show, too.
#include "plan/schema.h"

#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

namespace engr_app {
namespace {

using nlohmann::json;
using valijson::adapters::NlohmannJsonAdapter;

struct parsed_schema {
    parsed_schema() : text(json::parse(site_plan_schema())) {
        valijson::SchemaParser().populateSchema(NlohmannJsonAdapter(text), rules);
    }

    json text;
    valijson::Schema rules;
};

// A part of the schema, behind its reference if it is one.
const json &resolved(const json &schema, const json &part) {
    const auto reference = part.find("$ref");
    return reference == part.end()
               ? part
               : schema.at(json::json_pointer(reference->get<std::string>().substr(1)));
}

bool is_index(const std::string &step, const json &part) {
    return part.contains("items") &&
           std::ranges::all_of(step, [](char one) { return one >= '0' && one <= '9'; });
}

// The part of the schema that holds for a member or an element of what `part` holds for.
const json &inner_part(const json &schema, const json &part, const std::string &step) {
    if (is_index(step, part)) {
        return resolved(schema, part.at("items"));
    }
    const auto properties = part.find("properties");
    if (properties != part.end() && properties->contains(step)) {
        return resolved(schema, properties->at(step));
    }
    const auto others = part.find("additionalProperties");
    return others != part.end() && others->is_object() ? resolved(schema, *others) : part;
}

std::string known_members(const json &part) {
    std::string names;
    const json members = part.value("properties", json::object());
    for (const auto &[name, member] : members.items()) {
        names += (names.empty() ? "" : ", ") + name;
    }
    return names;
}

// The name at the end of a description, which has other texts in quotes before it.
std::string quoted_name(const std::string &description) {
    constexpr std::string_view before = "constraints: '";
    const std::size_t constraints = description.find(before);
    const std::size_t first =
        constraints == std::string::npos ? description.find('\'') : constraints + before.size() - 1;
    const std::size_t last = description.rfind('\'');
    return first < last ? description.substr(first + 1, last - first - 1) : "";
}

// valijson also names each object and array around a fault, and those say nothing new.
bool is_of_another(const std::string &description) {
    return description.starts_with("Failed to validate");
}

schema_fault fault_of(const json &schema, const valijson::ValidationResults::Error &error) {
    schema_fault fault;
    const json *part = &schema;
    for (const std::string &entry : error.context) {
        if (entry == "<root>") {
            continue;
        }
        const std::string step = entry.substr(1, entry.size() - 2); // without the brackets
        const bool index = is_index(step, *part);
        fault.place += index ? entry : (fault.place.empty() ? "" : ".") + step;
        part = &inner_part(schema, *part, step);
    }
    const std::string name = quoted_name(error.description);
    const std::string expected = part->value("description", "something else");
    if (error.description.starts_with("Missing required property")) {
        const json &missing = inner_part(schema, *part, name);
        fault.what = fmt::format("{} is missing: expected {}", name,
                                 missing.value("description", "something"));
    } else if (error.description.starts_with("Object contains a property")) {
        fault.what = fmt::format("unknown member {}; known are {}", name, known_members(*part));
    } else {
        fault.what = "expected " + expected;
    }
    return fault;
}

} // namespace

std::vector<schema_fault> schema_faults(const json &plan) {
    static const parsed_schema schema;
    valijson::ValidationResults results;
    valijson::Validator validator;
    if (validator.validate(schema.rules, NlohmannJsonAdapter(plan), &results)) {
        return {};
    }
    std::vector<schema_fault> faults;
    for (const valijson::ValidationResults::Error &error : results) {
        if (!is_of_another(error.description)) {
            faults.push_back(fault_of(schema.text, error));
        }
    }
    return faults;
}

} // namespace engr_app
