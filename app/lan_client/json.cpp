// Bounded reading of JSON.
#include "lan_client/json.h"

#include "lan_client/limits.h"
#include "utf8.h"

#include <cstddef>

#include <nlohmann/json.hpp>

namespace lan_client {
namespace {

using nlohmann::json;

// Copying and writing a value takes stack for every level.
constexpr std::size_t max_nesting = 200;

// Every value but the first stands behind a comma or opens a structure.
bool is_too_much(std::string_view text) {
    std::size_t depth = 0;
    std::size_t values = 1;
    bool in_string = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char byte = text[at];
        if (byte == '"') {
            in_string = !in_string;
        } else if (in_string) {
            at += byte == '\\' ? 1 : 0;
        } else if (byte == '{' || byte == '[') {
            if (++depth > max_nesting || ++values > max_json_values) {
                return true;
            }
        } else if (byte == ',') {
            if (++values > max_json_values) {
                return true;
            }
        } else if ((byte == '}' || byte == ']') && depth > 0) {
            --depth;
        }
    }
    return false;
}

// Tells a handler what the parser finds.
class list_reader : public nlohmann::json_sax<json> {
  public:
    explicit list_reader(list_handler &handler) : handler_(handler) {}

    bool null() override { return value("null"); }
    bool boolean(bool is_true) override { return value(is_true ? "true" : "false"); }
    bool number_integer(number_integer_t number) override { return value(std::to_string(number)); }
    bool number_unsigned(number_unsigned_t number) override {
        return value(std::to_string(number));
    }
    bool number_float(number_float_t, const string_t &text) override { return value(text); }
    bool string(string_t &text) override {
        if (depth_ != in_list || !is_list_) {
            return value(text);
        }
        handler_.entry();
        handler_.entry_text(text);
        return ++values_ <= max_json_values;
    }
    bool binary(binary_t &) override { return false; } // JSON has none
    bool key(string_t &name) override {
        name_.swap(name);
        if (depth_ == in_object) {
            member_.swap(name_);
        }
        return true;
    }
    bool start_object(std::size_t) override { return open(false); }
    bool start_array(std::size_t) override { return open(true); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool parse_error(std::size_t, const std::string &, const json::exception &) override {
        return false;
    }

  private:
    /** How many objects and lists are open. */
    enum : std::size_t { in_nothing, in_object, in_list, in_entry };

    bool value(const std::string &text) {
        if (depth_ == in_object) {
            handler_.member(member_, false);
        } else if (depth_ == in_list && is_list_) {
            handler_.entry();
        } else if (depth_ == in_entry && is_list_ && is_entry_object_) {
            handler_.entry_member(name_, text);
        }
        return depth_ != in_nothing && ++values_ <= max_json_values;
    }

    bool open(bool is_array) {
        if (depth_ == in_object) {
            is_list_ = is_array;
            handler_.member(member_, is_array);
        } else if (depth_ == in_list && is_list_) {
            is_entry_object_ = !is_array;
            handler_.entry();
        }
        const bool is_list_alone = is_array && depth_ == in_nothing;
        return !is_list_alone && ++depth_ <= max_nesting && ++values_ <= max_json_values;
    }

    bool close() {
        --depth_;
        return true;
    }

    list_handler &handler_;
    std::size_t depth_ = in_nothing;
    std::size_t values_ = 0;
    bool is_list_ = false;         // the object's member
    bool is_entry_object_ = false; // the list's entry
    std::string member_;           // of the object
    std::string name_;             // of the last other member
};

} // namespace

json parse_json(std::string_view text) {
    return is_too_much(text) ? json(json::value_t::discarded)
                             : json::parse(to_utf8(text), nullptr, false);
}

bool read_lists(std::string_view text, list_handler &handler) {
    list_reader reader(handler);
    return json::sax_parse(to_utf8(text), &reader);
}

std::string member_text(const json &object, const char *name) {
    if (!object.is_object() || !object.contains(name)) {
        return "";
    }
    const json &member = object.at(name);
    return member.is_string() ? member.get<std::string>()
                              : member.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::optional<uint64_t> member_count(const json &object, const char *name) {
    if (!object.is_object()) {
        return std::nullopt;
    }
    const auto found = object.find(name);
    return found != object.end() && found->is_number_unsigned()
               ? std::optional(found->get<uint64_t>())
               : std::nullopt;
}

} // namespace lan_client
