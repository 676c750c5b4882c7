// The frame types as an app sees them: the one list of this side.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace lan_client {

/**
 * The frame types of the TCP channel in the order of their numbers: number, name in this code,
 * name in full, how a request's payload travels, which answer follows it, and what it does, to be
 * read after the name.
 *
 * Commands to a device (7, 13) are decrypted by the gateway's device service; 34 is served only by
 * a handler that the gateway's application added.
 */
#define LAN_CLIENT_FRAME_TYPES(X)                                                                  \
    X(7, tp_cmd, FRM_TP_CMD, encrypted, on_success_only, "command to a device")                    \
    X(8, dp_report, FRM_DP_REPORT, encrypted, not_a_request, "report of data points")              \
    X(9, keepalive, FRM_KEEPALIVE, plain, always, "keep-alive")                                    \
    X(10, local_dp_query, FRM_LOCAL_DP_QUERY, encrypted, always, "data points of a device")        \
    X(12, token_bind, FRM_TOKEN_BIND, encrypted, always, "binding of a token")                     \
    X(13, tp_cmd_2, FRM_TP_CMD_2, encrypted, on_success_only, "command to a device")               \
    X(14, permit_join, FRM_PERMIT_JOIN, encrypted, always, "joining opened or closed")             \
    X(15, wifi_modify, FRM_WIFI_MODIFY, encrypted, always, "change of Wi-Fi network")              \
    X(16, local_dp_query_2, FRM_LOCAL_DP_QUERY_2, encrypted, always, "data points of a device")    \
    X(17, scene_cmd, FRM_SCENE_CMD, encrypted, always, "execution of a scene")                     \
    X(18, dp_query, FRM_DP_QUERY, encrypted, always, "query of a data point")                      \
    X(19, com_scene_exec, FRM_COM_SCENE_EXEC, encrypted, always, "execution of a linkage scene")   \
    X(34, raw_34, FRM_RAW_34, encrypted, never, "served only by an added handler")                 \
    X(208, grp_oper, FRM_GRP_OPER, encrypted, on_failure_only, "operation on a group")             \
    X(209, grp_exec, FRM_GRP_EXEC, encrypted, on_success_only, "command to a group")               \
    X(224, dev_line_stat, FRM_DEV_LINE_STAT, plain, always, "online and offline devices")          \
    X(226, scene_linkage, FRM_SCENE_LINKAGE, encrypted, always, "set of linkage scenes")           \
    X(227, gw_unactive_rpt, FRM_GW_UNACTIVE_RPT, encrypted, not_a_request, "gateway deactivated")  \
    X(228, sub_dev_unbind_rpt, FRM_SUB_DEV_UNBIND_RPT, encrypted, not_a_request, "device unbound") \
    X(229, dev_upgrade_info, FRM_DEV_UPGRADE_INFO, encrypted, always, "announcement of an image")  \
    X(230, dev_upgrade, FRM_DEV_UPGRADE, encrypted, always, "start of an upgrade")                 \
    X(231, download_firmware, FRM_DOWNLOAD_FIRMWARE, plain, never, "piece of an image")            \
    X(232, upgrade_percent_rpt, FRM_UPGRADE_PERCENT_RPT, encrypted, not_a_request,                 \
      "upgrade progress")                                                                          \
    X(233, subdevice_update_rpt, FRM_SUBDEVICE_UPDATE_RPT, encrypted, not_a_request,               \
      "version of a device after an upgrade")                                                      \
    X(240, user_bind_req_engr, FRM_USER_BIND_REQ_ENGR, encrypted, always, "binding of devices")    \
    X(241, dev_list, FRM_DEV_LIST, plain, always, "list of devices")                               \
    X(242, del_sub_dev, FRM_DEL_SUB_DEV, encrypted, always, "deletion of a device")                \
    X(243, sub_dev_bind_rpt, FRM_SUB_DEV_BIND_RPT, encrypted, not_a_request, "device bound")       \
    X(244, scene_oper, FRM_SCENE_OPER, encrypted, on_failure_only, "operation on a scene")         \
    X(245, download_cloud_cfg, FRM_DOWNLOAD_CLOUD_CFG, encrypted, always, "cloud configuration")   \
    X(246, download_app_cfg, FRM_DOWNLOAD_APP_CFG, encrypted, always, "app configuration")         \
    X(247, read_app_cfg, FRM_READ_APP_CFG, plain, always, "reading of the app configuration")      \
    X(248, scene_panel, FRM_SCENE_PANEL, encrypted, on_failure_only, "scene panel")                \
    X(249, gw_unactive, FRM_GW_UNACTIVE, plain, always, "deactivation of the gateway")             \
    X(250, chk_soft_ver, FRM_CHK_SOFT_VER, encrypted, always, "check of the version")              \
    X(251, nop, FRM_NOP, encrypted, never, "nothing")                                              \
    X(252, set_channel, FRM_SET_CHANNEL, encrypted, always, "setting of the radio channel")        \
    X(253, get_channel, FRM_GET_CHANNEL, plain, always, "reading of the radio channel")            \
    X(254, get_log, FRM_GET_LOG, plain, always, "log of the gateway")

/** Numbers of frame types. */
namespace frame_type {
#define LAN_CLIENT_FRAME_TYPE_NUMBER(number, name, ...) inline constexpr uint32_t name = number;
LAN_CLIENT_FRAME_TYPES(LAN_CLIENT_FRAME_TYPE_NUMBER)
#undef LAN_CLIENT_FRAME_TYPE_NUMBER
// Of datagrams:
inline constexpr uint32_t ap_nw_cfg = 1;
inline constexpr uint32_t udp_discovery = 19;
inline constexpr uint32_t udp_wifi_err = 20;
} // namespace frame_type

/** How the payload of a request travels. */
enum class payload_coding {
    plain,
    encrypted, /**< with the TCP key */
};

/** What to expect after a request. */
enum class answer_rule {
    always,
    on_failure_only, /**< accepted in silence */
    on_success_only, /**< refused in silence */
    never,
    not_a_request, /**< only the gateway sends it */
};

struct frame_type_info {
    uint32_t number;
    std::string_view name;
    payload_coding coding;
    answer_rule answer;
    std::string_view description; /**< what it does, to be read after the name */
};

/** All frame types of the TCP channel in the order of their numbers. */
[[nodiscard]] std::span<const frame_type_info> frame_types();

/** The entry of a number, or null. */
[[nodiscard]] const frame_type_info *find_frame_type(uint32_t number);

/** The entry of a name, in any letter case and with or without its "FRM_", or null. */
[[nodiscard]] const frame_type_info *find_frame_type(std::string_view name);

/** "FRM_DEV_LIST (241)", or "type 77" for a number that is not in the table. */
[[nodiscard]] std::string frame_type_text(uint32_t number);

/**
 * How to encode a request of this type: numbers that are not in the table can only be served by a
 * handler that the gateway's application added, and those get their payload decrypted.
 */
[[nodiscard]] payload_coding request_coding(uint32_t number);

} // namespace lan_client
