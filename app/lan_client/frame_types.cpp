// The table of frame types.
#include "lan_client/frame_types.h"

#include <algorithm>
#include <array>

#include <strings.h>

namespace lan_client {
namespace {

using enum payload_coding;
using enum answer_rule;

constexpr std::array types = {
#define LAN_CLIENT_FRAME_TYPE_INFO(number, name, full_name, coding, answer, description)           \
    frame_type_info{number, #full_name, coding, answer, description},
    LAN_CLIENT_FRAME_TYPES(LAN_CLIENT_FRAME_TYPE_INFO)
#undef LAN_CLIENT_FRAME_TYPE_INFO
};

constexpr std::string_view name_prefix = "FRM_";

bool equal_in_any_case(std::string_view left, std::string_view right) {
    return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

} // namespace

std::span<const frame_type_info> frame_types() {
    return types;
}

const frame_type_info *find_frame_type(uint32_t number) {
    const auto *entry = std::ranges::find(types, number, &frame_type_info::number);
    return entry == types.end() ? nullptr : entry;
}

const frame_type_info *find_frame_type(std::string_view name) {
    const auto *entry = std::ranges::find_if(types, [name](const frame_type_info &info) {
        return equal_in_any_case(name, info.name) ||
               equal_in_any_case(name, info.name.substr(name_prefix.size()));
    });
    return entry == types.end() ? nullptr : entry;
}

std::string frame_type_text(uint32_t number) {
    const frame_type_info *info = find_frame_type(number);
    return info == nullptr ? "type " + std::to_string(number)
                           : std::string(info->name) + " (" + std::to_string(number) + ")";
}

payload_coding request_coding(uint32_t number) {
    const frame_type_info *info = find_frame_type(number);
    return info == nullptr ? encrypted : info->coding;
}

} // namespace lan_client
