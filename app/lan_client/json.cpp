// Bounded reading of JSON.
#include "lan_client/json.h"

#include "lan_client/limits.h"
#include "utf8.h"

#include <cstddef>

#include <nlohmann/json.hpp>
#include <rapidjson/reader.h>

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

// Tells a handler what the parser finds. Its functions have the names that the parser calls.
class list_reader : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, list_reader> {
  public:
    explicit list_reader(list_handler &handler) : handler_(handler) {}

    bool Null() { return value("null"); }
    bool Bool(bool is_true) { return value(is_true ? "true" : "false"); }
    bool RawNumber(const char *text, std::size_t size, bool) { return value({text, size}); }
    bool String(const char *start, std::size_t size, bool) {
        const std::string_view text(start, size);
        if (!is_utf8(text)) { // half of a surrogate pair, by an escape
            return false;
        }
        if (depth_ != in_list || !is_list_) {
            return value(text);
        }
        handler_.entry();
        handler_.entry_text(text);
        return ++values_ <= max_json_values;
    }
    bool Key(const char *start, std::size_t size, bool) {
        (depth_ == in_object ? member_ : name_) = {start, size};
        return is_utf8({start, size});
    }
    bool StartObject() { return open(false); }
    bool StartArray() { return open(true); }
    bool EndObject(std::size_t) { return close(); }
    bool EndArray(std::size_t) { return close(); }

  private:
    /** How many objects and lists are open. */
    enum : std::size_t { in_nothing, in_object, in_list, in_entry };

    bool value(std::string_view text) {
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
    std::string_view member_;      // of the object
    std::string_view name_;        // of the last other member
};

} // namespace

json parse_json(std::string_view text) {
    return is_too_much(text) ? json(json::value_t::discarded)
                             : json::parse(to_utf8(text), nullptr, false);
}

// Texts are taken apart where they are: none is copied before a handler keeps it.
bool read_lists(std::string_view text, list_handler &handler) {
    std::string valid = to_utf8(text);
    rapidjson::InsituStringStream stream(valid.data());
    list_reader reader(handler);
    constexpr unsigned how = rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag;
    const bool is_object = rapidjson::Reader().Parse<how>(stream, reader);
    return is_object && stream.Tell() == valid.size(); // to the parser a NUL is the end
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
