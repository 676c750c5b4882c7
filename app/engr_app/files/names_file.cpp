// Reading and looking up of names.
#include "files/names_file.h"

#include "base/failure.h"
#include "files/input_file.h"
#include "support/data_points.h"
#include "support/json_value.h"

#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

constexpr std::size_t max_name_file_text_bytes = 64;

std::string name_text(const support::json_value &value) {
    return value.plain_text(max_name_file_text_bytes);
}

} // namespace

names_file::names_file(const std::string &path) : path_(path) {
    const support::json_document document(file_text(path), path);
    const auto read_device = [this](const std::string &id, const support::json_value &value) {
        device_entry &entry = devices_[id];
        if (value.json.is_string()) {
            entry.name = name_text(value);
            return;
        }
        support::read_members(value,
                              {{"name", [&](const auto &text) { entry.name = name_text(text); }},
                               {"room", [&](const auto &text) { entry.room = name_text(text); }}});
    };
    const auto read_product = [this](const std::string &id, const support::json_value &value) {
        for (const auto &[number, name] : value.members()) {
            if (support::data_point_number(number) == 0) {
                name.refuse("is not the name of a data point, whose number is 1 to 255");
            }
            products_[id][number] = name_text(name);
        }
    };
    support::read_members(document.root(), {{"devices",
                                             [&](const auto &all) {
                                                 for (const auto &[id, value] : all.members()) {
                                                     read_device(id, value);
                                                 }
                                             }},
                                            {"products", [&](const auto &all) {
                                                 for (const auto &[id, value] : all.members()) {
                                                     read_product(id, value);
                                                 }
                                             }}});
}

std::string names_file::device_name(const std::string &id) const {
    const auto found = devices_.find(id);
    return found == devices_.end() ? "" : found->second.name;
}

std::string names_file::device_room(const std::string &id) const {
    const auto found = devices_.find(id);
    return found == devices_.end() ? "" : found->second.room;
}

std::string names_file::device_id(const std::string &text) const {
    if (text.empty() || devices_.contains(text)) {
        return text;
    }
    std::string id = text;
    std::size_t count = 0;
    for (const auto &[candidate, entry] : devices_) {
        if (entry.name == text) {
            id = candidate;
            ++count;
        }
    }
    if (count > 1) {
        throw wrong_usage(fmt::format("{} devices of {} have the name {}; give the device's id",
                                      count, path_, text));
    }
    return id;
}

std::string names_file::data_point_name(const std::string &product_id,
                                        const std::string &number) const {
    const auto product = products_.find(product_id);
    if (product == products_.end() || !product->second.contains(number)) {
        return number;
    }
    return product->second.at(number);
}

std::string names_file::data_point_number(const std::string &product_id,
                                          const std::string &text) const {
    const auto product = products_.find(product_id);
    if (product == products_.end()) {
        return text;
    }
    const auto found = std::ranges::find(product->second, text, &point_names::value_type::second);
    return found == product->second.end() ? text : found->first;
}

} // namespace engr_app
