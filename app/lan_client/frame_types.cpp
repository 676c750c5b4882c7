// The table of frame types.
#include "lan_client/frame_types.h"

#include <algorithm>
#include <array>

#include <strings.h>

namespace lan_client {
namespace {

using enum payload_coding;
using enum answer_rule;

// Commands to a device (7, 13) are decoded by the gateway's device service with the TCP key; 34 is
// served only by an added handler, which gets it decrypted.
constexpr std::array types = {
    frame_type_info{7, "FRM_TP_CMD", encrypted, on_success_only, "command to a device"},
    frame_type_info{8, "FRM_DP_REPORT", encrypted, not_a_request, "report of data points"},
    frame_type_info{9, "FRM_KEEPALIVE", plain, always, "keep-alive"},
    frame_type_info{10, "FRM_LOCAL_DP_QUERY", encrypted, always, "data points of a device"},
    frame_type_info{12, "FRM_TOKEN_BIND", encrypted, always, "binding of a token"},
    frame_type_info{13, "FRM_TP_CMD_2", encrypted, on_success_only, "command to a device"},
    frame_type_info{14, "FRM_PERMIT_JOIN", encrypted, always, "joining opened or closed"},
    frame_type_info{15, "FRM_WIFI_MODIFY", encrypted, always, "change of Wi-Fi network"},
    frame_type_info{16, "FRM_LOCAL_DP_QUERY_2", encrypted, always, "data points of a device"},
    frame_type_info{17, "FRM_SCENE_CMD", encrypted, always, "execution of a scene"},
    frame_type_info{18, "FRM_DP_QUERY", encrypted, always, "query of a data point"},
    frame_type_info{19, "FRM_COM_SCENE_EXEC", encrypted, always, "execution of a linkage scene"},
    frame_type_info{34, "FRM_RAW_34", encrypted, never, "served only by an added handler"},
    frame_type_info{208, "FRM_GRP_OPER", encrypted, on_failure_only, "operation on a group"},
    frame_type_info{209, "FRM_GRP_EXEC", encrypted, on_success_only, "command to a group"},
    frame_type_info{224, "FRM_DEV_LINE_STAT", plain, always, "online and offline devices"},
    frame_type_info{226, "FRM_SCENE_LINKAGE", encrypted, always, "set of linkage scenes"},
    frame_type_info{227, "FRM_GW_UNACTIVE_RPT", encrypted, not_a_request, "gateway deactivated"},
    frame_type_info{228, "FRM_SUB_DEV_UNBIND_RPT", encrypted, not_a_request, "device unbound"},
    frame_type_info{229, "FRM_DEV_UPGRADE_INFO", encrypted, always, "announcement of an image"},
    frame_type_info{230, "FRM_DEV_UPGRADE", encrypted, always, "start of an upgrade"},
    frame_type_info{231, "FRM_DOWNLOAD_FIRMWARE", plain, never, "piece of an image"},
    frame_type_info{232, "FRM_UPGRADE_PERCENT_RPT", encrypted, not_a_request, "upgrade progress"},
    frame_type_info{233, "FRM_SUBDEVICE_UPDATE_RPT", encrypted, not_a_request,
                    "version of a device after an upgrade"},
    frame_type_info{240, "FRM_USER_BIND_REQ_ENGR", encrypted, always, "binding of devices"},
    frame_type_info{241, "FRM_DEV_LIST", plain, always, "list of devices"},
    frame_type_info{242, "FRM_DEL_SUB_DEV", encrypted, always, "deletion of a device"},
    frame_type_info{243, "FRM_SUB_DEV_BIND_RPT", encrypted, not_a_request, "device bound"},
    frame_type_info{244, "FRM_SCENE_OPER", encrypted, on_failure_only, "operation on a scene"},
    frame_type_info{245, "FRM_DOWNLOAD_CLOUD_CFG", encrypted, always, "cloud configuration"},
    frame_type_info{246, "FRM_DOWNLOAD_APP_CFG", encrypted, always, "app configuration"},
    frame_type_info{247, "FRM_READ_APP_CFG", plain, always, "reading of the app configuration"},
    frame_type_info{248, "FRM_SCENE_PANEL", encrypted, on_failure_only, "scene panel"},
    frame_type_info{249, "FRM_GW_UNACTIVE", plain, always, "deactivation of the gateway"},
    frame_type_info{250, "FRM_CHK_SOFT_VER", encrypted, always, "check of the version"},
    frame_type_info{251, "FRM_NOP", encrypted, never, "nothing"},
    frame_type_info{252, "FRM_SET_CHANNEL", encrypted, always, "setting of the radio channel"},
    frame_type_info{253, "FRM_GET_CHANNEL", plain, always, "reading of the radio channel"},
    frame_type_info{254, "FRM_GET_LOG", plain, always, "log of the gateway"},
};

constexpr std::string_view name_prefix = "FRM_";

bool equal_in_any_case(std::string_view left, std::string_view right) {
    return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

} // namespace

std::span<const frame_type_info> frame_types() {
    return types;
}

const frame_type_info *find_frame_type(std::uint32_t number) {
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

std::string frame_type_text(std::uint32_t number) {
    const frame_type_info *info = find_frame_type(number);
    return info == nullptr ? "type " + std::to_string(number)
                           : std::string(info->name) + " (" + std::to_string(number) + ")";
}

payload_coding request_coding(std::uint32_t number) {
    const frame_type_info *info = find_frame_type(number);
    return info == nullptr ? encrypted : info->coding;
}

} // namespace lan_client
