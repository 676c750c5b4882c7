#include "support/json_value.h"

#include "json_parser.h"
#include "support/input_error.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <unordered_set>

namespace support {
namespace {

using nlohmann::ordered_json;

/** Copying and writing a value takes stack for every level. */
constexpr std::size_t levels_max = 200;

/** So many members are compared with each other by name; a hash finds those of larger objects. */
constexpr std::size_t compared_members_max = 16;

/** The library's number of the error of a number that has no place in a double. */
constexpr int number_too_large = 406;

char lower_case(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return lower_case(c); });
    return text;
}

/** Whether two names mean the same member. */
bool is_same_name(std::string_view one, std::string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return lower_case(a) == lower_case(b); });
}

/**
 * Builds a value from what the parser finds. The parser's own way enters a member into an object by
 * a search among those before it, which takes a time that grows with the square of their number,
 * and lets the last of two with the same name win.
 */
class json_builder final : public nlohmann::json_sax<ordered_json> {
  public:
    json_builder(std::string_view text, const std::string &source, const json_bounds &bounds)
        : text_(text), source_(source), bounds_(bounds) {}

    ordered_json take() { return std::move(root_); }

    bool null() override { return add(nullptr); }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(number_integer_t value) override { return add(value); }
    bool number_unsigned(number_unsigned_t value) override { return add(value); }
    bool number_float(number_float_t value, const string_t &) override { return add(value); }
    bool string(string_t &value) override { return add(std::move(value)); }
    bool binary(binary_t &value) override { return add(std::move(value)); }
    bool start_object(std::size_t) override { return open(ordered_json::object()); }
    bool start_array(std::size_t) override { return open(ordered_json::array()); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }

    bool key(string_t &name) override {
        if (is_given(name)) {
            refuse(fmt::format("member \"{}\" is given twice", name));
        }
        if (members_.size() - open_.back().first_member >= bounds_.members_max) {
            refuse(fmt::format("an object has more than {} members", bounds_.members_max));
        }
        members_.emplace_back(std::move(name), nullptr);
        return true;
    }

    bool parse_error(std::size_t position, const std::string &,
                     const nlohmann::json::exception &error) override {
        const std::size_t at =
            std::min(position - std::min<std::size_t>(position, 1), text_.size());
        const std::string_view before = text_.substr(0, at);
        refuse(fmt::format("line {}, column {}: {}", std::ranges::count(before, '\n') + 1,
                           at - (before.rfind('\n') + 1) + 1,
                           error.id == number_too_large ? "the number is too large"
                                                        : "is not valid JSON in UTF-8"));
    }

  private:
    /** An object or array that has not ended. */
    struct structure {
        ordered_json value;
        std::size_t first_member;              // of an object: where its members begin
        std::unordered_set<std::string> names; // of many members, in lower case
    };

    [[noreturn]] void refuse(const std::string &what) const {
        throw input_error(source_ + ": " + what);
    }

    void count_value() {
        if (++values_ > bounds_.values_max) {
            refuse(fmt::format("has more than {} values", bounds_.values_max));
        }
    }

    /** Whether the innermost object has a member of that name. Notes the name, if it is not. */
    bool is_given(const std::string &name) {
        structure &object = open_.back();
        const auto first = members_.begin() + static_cast<std::ptrdiff_t>(object.first_member);
        if (members_.size() - object.first_member <= compared_members_max) {
            return std::any_of(first, members_.end(),
                               [&](const auto &each) { return is_same_name(each.first, name); });
        }
        if (object.names.empty()) {
            std::for_each(first, members_.end(),
                          [&](const auto &each) { object.names.insert(lower_case(each.first)); });
        }
        return !object.names.insert(lower_case(name)).second;
    }

    bool add(ordered_json value) {
        count_value();
        return put(std::move(value));
    }

    /** Enters a value, or an object or array that has ended, into what is open. */
    bool put(ordered_json value) {
        if (open_.empty()) {
            root_ = std::move(value);
        } else if (structure &outer = open_.back(); outer.value.is_array()) {
            outer.value.push_back(std::move(value));
        } else {
            members_.back().second = std::move(value);
        }
        return true;
    }

    bool open(ordered_json value) {
        count_value();
        if (open_.size() >= levels_max) {
            refuse(fmt::format("has more than {} levels", levels_max));
        }
        open_.push_back({.value = std::move(value), .first_member = members_.size(), .names = {}});
        return true;
    }

    bool close() {
        structure ended = std::move(open_.back());
        open_.pop_back();
        if (ended.value.is_object()) {
            auto &members = ended.value.get_ref<ordered_json::object_t &>();
            members.reserve(members_.size() - ended.first_member);
            for (std::size_t i = ended.first_member; i < members_.size(); ++i) {
                members.emplace_back(std::move(members_[i].first), std::move(members_[i].second));
            }
            members_.resize(ended.first_member);
        }
        return put(std::move(ended.value));
    }

    std::string_view text_;
    const std::string &source_;
    const json_bounds &bounds_;
    std::size_t values_ = 0; // begun so far
    ordered_json root_;
    std::vector<structure> open_;
    // Of all open objects, those of inner ones last. The last one gets the next value.
    std::vector<std::pair<std::string, ordered_json>> members_;
};

bool is_control(char character) {
    const auto code = static_cast<unsigned char>(character);
    return code < 0x20 || code == 0x7F;
}

/** What is not plainly JSON goes to the slower parser, which knows what is wrong and where. */
ordered_json parsed(std::string_view text, const std::string &source, const json_bounds &bounds) {
    json_builder quick(text, source, bounds);
    if (parse_json(std::string(text), quick)) {
        return quick.take();
    }
    json_builder exact(text, source, bounds);
    ordered_json::sax_parse(text, &exact);
    return exact.take();
}

} // namespace

json_document::json_document(std::string_view text, std::string source, const json_bounds &bounds)
    : source_(std::make_unique<const std::string>(std::move(source))),
      json_(std::make_unique<ordered_json>(parsed(text, *source_, bounds))) {}

json_document::json_document(json_document &&other) noexcept = default;
json_document &json_document::operator=(json_document &&other) noexcept = default;
json_document::~json_document() = default;

json_value json_document::root() const {
    return {*source_, "", *json_};
}

void json_document::name_list(const std::string &name) {
    if (json_->is_array()) {
        auto whole = ordered_json::object();
        whole[name] = std::move(*json_);
        *json_ = std::move(whole);
    }
}

void json_value::refuse(std::string_view what) const {
    throw input_error(fmt::format("{}: {}{}{}", source, path, path.empty() ? "" : ": ", what));
}

void json_value::refuse_kind(std::string_view expected) const {
    refuse(fmt::format("is {}, expected {}", json.type_name(), expected));
}

void json_value::refuse_unknown(std::string_view known) const {
    refuse(fmt::format("unknown; there are: {}", known));
}

json_value json_value::member(std::string_view name, const ordered_json &value) const {
    // A site has hundreds of thousands of members, whose paths nobody looks at.
    std::string path_of_member;
    path_of_member.reserve(path.size() + 1 + name.size());
    path_of_member.append(path).append(path.empty() ? "" : ".").append(name);
    return {source, std::move(path_of_member), value};
}

const ordered_json *json_value::find(std::string_view name) const {
    if (json.is_object()) {
        for (const auto &item : json.items()) {
            if (is_same_name(item.key(), name)) {
                return &item.value();
            }
        }
    }
    return nullptr;
}

std::vector<std::pair<std::string, json_value>> json_value::members() const {
    if (!json.is_object()) {
        refuse_kind("an object");
    }
    std::vector<std::pair<std::string, json_value>> all;
    all.reserve(json.size());
    for (const auto &item : json.items()) {
        all.emplace_back(item.key(), member(item.key(), item.value()));
    }
    return all;
}

std::vector<json_value> json_value::elements(std::size_t least, std::size_t most) const {
    if (!json.is_array()) {
        refuse_kind("an array");
    }
    if (json.size() < least && most == SIZE_MAX) {
        refuse(fmt::format("has {} elements; it needs {} at least", json.size(), least));
    }
    if (json.size() < least || json.size() > most) {
        refuse(fmt::format("has {} elements; it may have {} to {}", json.size(), least, most));
    }
    std::vector<json_value> all;
    all.reserve(json.size());
    for (const ordered_json &element : json) {
        all.push_back({source, path + "[" + std::to_string(all.size()) + "]", element});
    }
    return all;
}

json_value json_value::required(std::string_view name) const {
    if (!json.is_object()) {
        refuse_kind("an object");
    }
    const ordered_json *found = find(name);
    if (found == nullptr) {
        refuse(fmt::format("has no {}", name));
    }
    return member(name, *found);
}

bool json_value::has(std::string_view name) const {
    return find(name) != nullptr;
}

bool json_value::boolean() const {
    if (!json.is_boolean()) {
        refuse_kind("true or false");
    }
    return json.get<bool>();
}

int64_t json_value::whole_number(int64_t lowest, int64_t highest) const {
    if (json.is_number_float()) {
        refuse("is not whole, expected a whole number");
    }
    if (!json.is_number_integer()) {
        refuse_kind("a whole number");
    }
    const bool is_too_large = json.is_number_unsigned() && json.get<uint64_t>() > INT64_MAX;
    const auto number = json.get<int64_t>();
    if (is_too_large || number < lowest || number > highest) {
        refuse(fmt::format("is {}; it may be {} to {}", json.dump(), lowest, highest));
    }
    return number;
}

std::string json_value::text() const {
    if (!json.is_string()) {
        refuse_kind("a text");
    }
    return json.get<std::string>();
}

std::string json_value::text(std::size_t bytes_max) const {
    std::string read = text();
    if (read.empty() || read.size() > bytes_max) {
        refuse(fmt::format("has {} bytes; it may have 1 to {}", read.size(), bytes_max));
    }
    return read;
}

std::string json_value::plain_text(std::size_t bytes_max) const {
    std::string read = text(bytes_max);
    if (std::any_of(read.begin(), read.end(), is_control)) {
        refuse("holds a control character");
    }
    if (read.find_first_of("\"\\") != std::string::npos) {
        refuse("holds a double quote or a backslash");
    }
    return read;
}

void read_members(const json_value &object, const std::vector<known_member> &members) {
    for (const auto &[name, value] : object.members()) {
        const auto known =
            std::find_if(members.begin(), members.end(), [&name = name](const known_member &of) {
                return is_same_name(of.name, name);
            });
        if (known == members.end()) {
            std::vector<std::string_view> names;
            for (const known_member &of : members) {
                names.emplace_back(of.name);
            }
            value.refuse_unknown(fmt::format("{}", fmt::join(names, ", ")));
        }
        known->read(value);
    }
}

} // namespace support
