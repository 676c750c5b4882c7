#include "base/json_list.h"

#include "base/json_text.h"

#include <utility>

#include <nlohmann/json.hpp>

namespace engr_app {

void json_list::begin_object() {
    text_ += text_.empty() ? "[\n  {\n" : "\n  },\n  {\n";
    is_first_member_ = true;
}

void json_list::add(std::string_view name, const std::string &text) {
    begin_member(name);
    if (is_plain_text(text, text.size())) {
        text_.append(1, '"').append(text).append(1, '"');
    } else {
        text_ += one_line(nlohmann::json(text));
    }
}

void json_list::add(std::string_view name, std::optional<bool> flag) {
    begin_member(name);
    text_ += !flag ? "null" : *flag ? "true" : "false";
}

void json_list::add_known(std::string_view name, const std::string &text) {
    if (!text.empty()) {
        return add(name, text);
    }
    begin_member(name);
    text_ += "null";
}

std::string json_list::take() && {
    text_ += text_.empty() ? "[]" : "\n  }\n]";
    return std::move(text_);
}

void json_list::begin_member(std::string_view name) {
    text_ += is_first_member_ ? "    \"" : ",\n    \"";
    text_.append(name).append("\": ");
    is_first_member_ = false;
}

} // namespace engr_app
