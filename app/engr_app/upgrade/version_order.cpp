// Comparing versions part by part.
#include "upgrade/version_order.h"

#include <cstring>
#include <string_view>

namespace engr_app {
namespace {

// Takes the next part; "0" when there is none. Leading zeros say nothing.
std::string take_part(std::string_view &version) {
    const std::size_t end = version.find('.');
    std::string_view part = version.substr(0, end);
    version.remove_prefix(end == std::string_view::npos ? version.size() : end + 1);
    while (part.size() > 1 && part.front() == '0' && part[1] >= '0' && part[1] <= '9') {
        part.remove_prefix(1);
    }
    return part.empty() ? "0" : std::string(part);
}

std::string_view without_letter(std::string_view version) {
    const bool marked = version.starts_with('v') || version.starts_with('V');
    return marked ? version.substr(1) : version;
}

} // namespace

bool is_older_version(const std::string &one, const std::string &other) {
    if (one.empty() || other.empty()) {
        return false;
    }
    std::string_view left = without_letter(one);
    std::string_view right = without_letter(other);
    while (!left.empty() || !right.empty()) {
        const std::string left_part = take_part(left);
        const std::string right_part = take_part(right);
        const int order = ::strverscmp(left_part.c_str(), right_part.c_str());
        if (order != 0) {
            return order < 0;
        }
    }
    return false;
}

} // namespace engr_app
