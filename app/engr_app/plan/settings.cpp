#include "plan/settings.h"

#include "plan/document.h"

#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

// A variable may use others, though not itself.
constexpr int max_variable_depth = 8;
constexpr std::size_t max_filled_bytes = 1024 * 1024;

bool is_unfit_for_json(char one) {
    const auto code = static_cast<unsigned char>(one);
    return code < ' ' || code == 0x7F || one == '"' || one == '\\';
}

} // namespace

void setting::refuse(const std::string &what) const {
    document.refuse(place, what);
}

bool setting::has(const char *name) const {
    return value.contains(name);
}

setting setting::member(const std::string &name) const {
    return {document, value.at(name), (place.empty() ? "" : place + ".") + name, variables};
}

std::vector<setting> setting::elements() const {
    std::vector<setting> all;
    for (std::size_t index = 0; index < value.size(); ++index) {
        all.push_back({document, value[index], fmt::format("{}[{}]", place, index), variables});
    }
    return all;
}

void setting::each_member(
    const std::function<void(const std::string &, const setting &)> &work) const {
    for (const auto &[name, inner] : value.items()) {
        work(name, member(name));
    }
}

std::string setting::filled_text(const std::string &text, int depth) const {
    std::string filled;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = text.find("${", at);
        if (start == std::string::npos) {
            return filled + text.substr(at);
        }
        if (start > at && text[start - 1] == '$') {
            filled += text.substr(at, start - at - 1) + "${";
            at = start + 2;
            continue;
        }
        const std::size_t end = text.find('}', start);
        const std::string name =
            text.substr(start + 2, end == std::string::npos ? end : end - start - 2);
        const auto known = variables.find(name);
        if (end == std::string::npos || known == variables.end()) {
            refuse(fmt::format("there is no variable {} here ($${{ stands for a plain ${{)", name));
        }
        if (depth == max_variable_depth) {
            refuse(fmt::format("variable {} uses itself", name));
        }
        filled += text.substr(at, start - at) + filled_text(known->second, depth + 1);
        if (filled.size() > max_filled_bytes) {
            refuse("the text is too long with its variables");
        }
        at = end + 1;
    }
    return filled;
}

std::string setting::any_text() const {
    return filled_text(value.get<std::string>());
}

std::string setting::text(std::size_t max_bytes) const {
    std::string filled = any_text();
    if (filled.empty() || filled.size() > max_bytes ||
        std::ranges::any_of(filled, is_unfit_for_json)) {
        refuse(fmt::format("expected 1 to {} bytes without control character, double quote and "
                           "backslash",
                           max_bytes));
    }
    return filled;
}

json setting::filled() const {
    if (value.is_string()) {
        return any_text();
    }
    json all = value;
    if (value.is_object()) {
        each_member(
            [&all](const std::string &name, const setting &inner) { all[name] = inner.filled(); });
    } else if (value.is_array()) {
        const std::vector<setting> inner = elements();
        for (std::size_t index = 0; index < inner.size(); ++index) {
            all[index] = inner[index].filled();
        }
    }
    return all;
}

} // namespace engr_app
