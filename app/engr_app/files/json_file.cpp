// Reading and checking of JSON files.
#include "files/json_file.h"

#include "base/json_text.h"
#include "files/input_file.h"
#include "gateway/data_points.h"
#include "gateway/request.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

std::string shown_name(const std::string &path) {
    return path == "-" ? "standard input" : path;
}

// Where the first fault of a text is.
std::string fault_in(const std::string &text) {
    try {
        const json whole = json::parse(text);
    } catch (const json::parse_error &fault) {
        const std::size_t at = std::min(fault.byte == 0 ? 0 : fault.byte - 1, text.size());
        const std::string_view before(text.data(), at);
        const auto line = std::ranges::count(before, '\n') + 1;
        const std::size_t column = at - (before.rfind('\n') + 1) + 1;
        return "line " + std::to_string(line) + ", column " + std::to_string(column) +
               ": this is no JSON";
    } catch (const json::exception &) {
        return "a number in it is too large";
    }
    return "it is nested too deeply";
}

} // namespace

bool is_device_id(std::string_view text) {
    return is_plain_text(text, max_device_id_bytes) && text.find(' ') == std::string::npos;
}

json_place::json_place(std::shared_ptr<const json> root, const json &value, std::string file,
                       std::string path)
    : root_(std::move(root)), value_(&value), file_(std::move(file)), path_(std::move(path)) {}

json_place json_place::read(const std::string &path, const char *list_name) {
    const std::string content = file_text(path);
    json whole = parse_json(content, any_number_of_values);
    if (whole.is_discarded()) {
        throw wrong_usage(shown_name(path) + ": " + fault_in(content));
    }
    if (list_name != nullptr && whole.is_array()) {
        json listed = json::object();
        listed[list_name] = std::move(whole);
        whole = std::move(listed);
    }
    const auto root = std::make_shared<const json>(std::move(whole));
    json_place place(root, *root, shown_name(path), "");
    if (!root->is_object()) {
        place.refuse(list_name == nullptr ? "expected an object"
                                          : "expected an array or an object with \"" +
                                                std::string(list_name) + "\"");
    }
    return place;
}

void json_place::refuse(std::string_view what_is_wrong) const {
    throw wrong_usage(file_ + ": " + path_ + (path_.empty() ? "" : ": ") +
                      std::string(what_is_wrong));
}

json_place json_place::at(const json &value, const std::string &step) const {
    const bool dotted = !path_.empty() && !step.starts_with('[');
    return {root_, value, file_, path_ + (dotted ? "." : "") + step};
}

bool json_place::has(const char *name) const {
    return value_->is_object() && value_->contains(name);
}

json_place json_place::member(const char *name) const {
    if (!has(name)) {
        refuse("expected an object with the member \"" + std::string(name) + "\"");
    }
    return at(value_->at(name), name);
}

std::vector<json_place> json_place::entries(const char *name) const {
    const json_place list = member(name);
    if (!list.value_->is_array()) {
        list.refuse("expected an array");
    }
    std::vector<json_place> all;
    for (const json &entry : *list.value_) {
        all.push_back(list.at(entry, "[" + std::to_string(all.size()) + "]"));
    }
    return all;
}

std::string json_place::text(const char *name, std::size_t max_bytes) const {
    const json_place place = member(name);
    const std::string *text = place.value_->get_ptr<const std::string *>();
    if (text == nullptr || text->empty() || text->size() > max_bytes) {
        place.refuse("expected a text of 1 to " + std::to_string(max_bytes) + " characters");
    }
    return *text;
}

std::int64_t json_place::number(const char *name, std::int64_t least, std::int64_t greatest) const {
    const json_place place = member(name);
    const bool whole = place.value_->is_number_integer();
    // An unsigned number beyond the signed ones would wrap.
    const bool wraps = place.value_->is_number_unsigned() &&
                       place.value_->get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX);
    const std::int64_t number = whole ? place.value_->get<std::int64_t>() : 0;
    if (!whole || wraps || number < least || number > greatest) {
        place.refuse("expected a whole number of " + std::to_string(least) + " to " +
                     std::to_string(greatest));
    }
    return number;
}

std::string json_place::id(const char *name) const {
    std::string text = this->text(name, max_device_id_bytes);
    if (!is_device_id(text)) {
        member(name).refuse("expected printable characters without blank, quote and backslash");
    }
    return text;
}

void json_place::check_actions(const char *name) const {
    const std::vector<json_place> actions = entries(name);
    if (actions.empty()) {
        member(name).refuse("expected at least one action {\"cid\": ID, \"dps\": {...}}");
    }
    for (const json_place &action : actions) {
        static_cast<void>(action.id("cid"));
        const json_place data_points = action.member("dps");
        const std::string fault = data_points_fault(*data_points.value_);
        if (!fault.empty()) {
            data_points.refuse(fault);
        }
    }
}

std::vector<std::string> distinct_ids(const std::vector<json_place> &entries, const char *name) {
    std::vector<std::string> ids;
    std::unordered_set<std::string> seen;
    for (const json_place &entry : entries) {
        ids.push_back(entry.id(name));
        if (!seen.insert(ids.back()).second) {
            entry.member(name).refuse("\"" + ids.back() + "\" is given twice");
        }
    }
    return ids;
}

} // namespace engr_app
