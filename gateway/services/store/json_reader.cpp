#include "store/json_reader.h"

#include "store/json_text.h"
#include "subjects/data_points.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace gateway {

using nlohmann::ordered_json;

namespace {

/** Most members of an object in a request: an object of all data points, and one to spare. An
 * ordered object finds each of its members by a search, so that without a bound the time would grow
 * with the square of their number. */
constexpr std::size_t request_members_max = 256;

char lower_case(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return lower_case(c); });
    return text;
}

/** Whether two names mean the same member: the letter case of ASCII does not matter. */
bool is_same_name(std::string_view one, std::string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return lower_case(a) == lower_case(b); });
}

/** Looks through a text for members given twice, and for objects with too many. A parser's callback
 * could do so too, but then looks at all elements of an array again after each of them. */
class member_check : public nlohmann::json_sax<ordered_json> {
  public:
    member_check(const std::string &source, std::size_t members_max)
        : source_(source), members_max_(members_max) {}

    bool key(string_t &name) override {
        if (!names_.back().insert(lower_case(name)).second) {
            throw usage_error(source_ + ": member \"" + name + "\" is given twice");
        }
        if (names_.back().size() > members_max_) {
            throw usage_error(source_ + ": an object has more than " +
                              std::to_string(members_max_) + " members");
        }
        return true;
    }
    bool start_object(std::size_t) override {
        names_.emplace_back();
        return true;
    }
    bool end_object() override {
        names_.pop_back();
        return true;
    }
    bool start_array(std::size_t) override { return true; }
    bool end_array() override { return true; }
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t &) override { return true; }
    bool string(string_t &) override { return true; }
    bool binary(binary_t &) override { return true; }
    bool parse_error(std::size_t, const std::string &, const nlohmann::json::exception &) override {
        return false; // told by the parser
    }

  private:
    const std::string &source_;
    std::size_t members_max_;
    std::vector<std::set<std::string>> names_; // of the objects that are open
};

/** Parses a text in which no object has a member twice, nor more than so many members. */
ordered_json parse_strictly(std::string_view text, const std::string &source,
                            std::size_t members_max) {
    member_check check(source, members_max);
    (void)ordered_json::sax_parse(text, &check);
    return ordered_json::parse(text);
}

} // namespace

void json_value::refuse(const std::string &what) const {
    throw usage_error(source + ": " + (path.empty() ? what : path + ": " + what));
}

json_value json_value::member(const std::string &name, const ordered_json &value) const {
    return {source, path.empty() ? name : path + "." + name, value};
}

const ordered_json *json_value::find(std::string_view name) const {
    for (const auto &item : json.items()) {
        if (is_same_name(item.key(), name)) {
            return &item.value();
        }
    }
    return nullptr;
}

json_value json_value::required(const std::string &name) const {
    need_object();
    const ordered_json *found = find(name);
    if (found == nullptr) {
        refuse("has no " + name);
    }
    return member(name, *found);
}

json_value json_value::element(std::size_t index) const {
    return {source, path + "[" + std::to_string(index) + "]", json[index]};
}

void json_value::need_object() const {
    if (!json.is_object()) {
        refuse(std::string("is ") + json.type_name() + ", expected an object");
    }
}

void json_value::need_array() const {
    if (!json.is_array()) {
        refuse(std::string("is ") + json.type_name() + ", expected an array");
    }
}

int64_t json_value::whole_number(int64_t lowest, int64_t highest) const {
    if (!json.is_number_integer()) {
        refuse(std::string("is ") + (json.is_number() ? "not whole" : json.type_name()) +
               ", expected a whole number");
    }
    const bool too_large = json.is_number_unsigned() && json.get<uint64_t>() > INT64_MAX;
    if (too_large || json.get<int64_t>() < lowest || json.get<int64_t>() > highest) {
        refuse("is " + json.dump() + "; it may be " + std::to_string(lowest) + " to " +
               std::to_string(highest));
    }
    return json.get<int64_t>();
}

void json_value::refuse_unknown(const std::string &known) const {
    refuse("unknown; there are: " + known);
}

std::string json_value::text() const {
    if (!json.is_string()) {
        refuse(std::string("is ") + json.type_name() + ", expected a text");
    }
    return json.get<std::string>();
}

std::string json_value::id() const {
    std::string read = text();
    if (read.empty() || read.size() > name_bytes_max) {
        refuse("has " + std::to_string(read.size()) + " bytes; it may have 1 to " +
               std::to_string(name_bytes_max));
    }
    if (std::any_of(read.begin(), read.end(), is_control)) {
        refuse("holds a control character");
    }
    if (read.find_first_of("\"\\") != std::string::npos) {
        refuse("holds a double quote or a backslash");
    }
    return read;
}

std::string json_value::data_points() const {
    if (const std::string fault = data_points_fault(json); !fault.empty()) {
        refuse(fault);
    }
    return json.dump();
}

void read_members(const json_value &object, const std::vector<known_member> &members) {
    object.need_object();
    for (const auto &item : object.json.items()) {
        const json_value member = object.member(item.key(), item.value());
        const auto known =
            std::find_if(members.begin(), members.end(),
                         [&](const known_member &of) { return is_same_name(of.name, item.key()); });
        if (known == members.end()) {
            std::string names;
            for (const known_member &of : members) {
                names += (names.empty() ? "" : ", ") + std::string(of.name);
            }
            member.refuse_unknown(names);
        }
        known->read(member);
    }
}

void read_file_object(std::string_view text, const std::string &file_name,
                      const std::vector<known_member> &members) {
    const auto parse = [&] {
        try {
            return parse_strictly(text, file_name, SIZE_MAX);
        } catch (const ordered_json::exception &error) {
            // What stands before the first "] " is the library's own number of the error.
            const std::string what = error.what();
            throw usage_error(file_name + ": " + what.substr(what.find("] ") + 2));
        }
    };
    const ordered_json json = parse();
    read_members({file_name, "", json}, members);
}

void read_request(std::string_view text,
                  const std::function<void(const json_value &request)> &read) {
    static const std::string source = "request";
    const auto parse = [&] {
        try {
            return parse_strictly(text, source, request_members_max);
        } catch (const ordered_json::exception &) {
            throw usage_error(source + ": is not valid JSON in UTF-8");
        }
    };
    const ordered_json json = parse();
    read({source, "", json});
}

} // namespace gateway
