/* The frame types of the LAN protocol: the one list behind the dispatcher and the documents. */
#pragma once

#include <cstdint>

/**
 * X(number, name, way, payload, handler, meaning)
 *
 * way      request:  app to gateway on TCP, handed to the dispatcher
 *          answered: app to gateway on TCP, answered by the server task itself
 *          report:   pushed to every connected app, frame number 0
 *          datagram: UDP
 * payload  raw: the handler sees the payload as received; decrypted: it sees the decrypted text;
 *          none
 * handler  function of the command floor, or no_handler
 */
#define LAN_FRAME_TYPES(X)                                                                         \
    X(1, FRM_AP_NW_CFG, datagram, none, no_handler, "network configuration in plain")              \
    X(7, FRM_TP_CMD, request, raw, lan_device_command, "data-point command to a device")           \
    X(8, FRM_DP_REPORT, report, none, no_handler, "data-point report")                             \
    X(9, FRM_KEEPALIVE, answered, none, no_handler, "keep-alive")                                  \
    X(10, FRM_LOCAL_DP_QUERY, request, decrypted, lan_query_device,                                \
      "all data points of one device")                                                             \
    X(12, FRM_TOKEN_BIND, request, decrypted, lan_bind_token, "binds the installer's token")       \
    X(13, FRM_TP_CMD_2, request, raw, lan_device_command, "same as FRM_TP_CMD")                    \
    X(14, FRM_PERMIT_JOIN, request, decrypted, lan_permit_join, "opens or closes joining")         \
    X(15, FRM_WIFI_MODIFY, request, decrypted, lan_modify_wifi, "moves to another Wi-Fi network")  \
    X(16, FRM_LOCAL_DP_QUERY_2, request, decrypted, lan_query_device,                              \
      "same as FRM_LOCAL_DP_QUERY")                                                                \
    X(17, FRM_SCENE_CMD, request, decrypted, lan_run_scene, "executes a scene of a group")         \
    X(18, FRM_DP_QUERY, request, decrypted, lan_query_data_points, "data-point query")             \
    X(19, FRM_COM_SCENE_EXEC, request, decrypted, __lan_protocol_FRM_COM_SCENE_EXEC,               \
      "executes a linkage scene")                                                                  \
    X(19, FRM_UDP_DISCOVERY, datagram, none, no_handler, "discovery broadcast")                    \
    X(20, FRM_UDP_WIFI_ERR, datagram, none, no_handler,                                            \
      "encrypted network configuration; report of its failure")                                    \
    X(34, FRM_RAW_34, request, raw, no_handler, "for registered handlers only")                    \
    X(208, FRM_GRP_OPER, request, decrypted, lan_group_operation, "group operation")               \
    X(209, FRM_GRP_EXEC, request, decrypted, lan_group_command, "data-point command to a group")   \
    X(224, FRM_DEV_LINE_STAT, request, raw, __lan_get_dev_line_stat,                               \
      "online and offline sub-devices")                                                            \
    X(226, FRM_SCENE_LINKAGE, request, decrypted, __lan_set_scene_linkage,                         \
      "replaces the scene-linkage set")                                                            \
    X(227, FRM_GW_UNACTIVE_RPT, report, none, no_handler, "the gateway was deactivated")           \
    X(228, FRM_SUB_DEV_UNBIND_RPT, report, none, no_handler, "a sub-device was unbound")           \
    X(229, FRM_DEV_UPGRADE_INFO, request, decrypted, __lan_dev_upgrade_info,                       \
      "announces a firmware image")                                                                \
    X(230, FRM_DEV_UPGRADE, request, decrypted, __lan_dev_upgrade, "starts a firmware upgrade")    \
    X(231, FRM_DOWNLOAD_FIRMWARE, request, raw, __lan_download_firmware,                           \
      "a piece of a firmware image; the gateway's request for one")                                \
    X(232, FRM_UPGRADE_PERCENT_RPT, report, none, no_handler, "progress of a firmware upgrade")    \
    X(233, FRM_SUBDEVICE_UPDATE_RPT, report, none, no_handler,                                     \
      "a sub-device's version after an upgrade")                                                   \
    X(240, FRM_USER_BIND_REQ_ENGR, request, decrypted, lan_bind_sub_devices, "binds sub-devices")  \
    X(241, FRM_DEV_LIST, request, raw, __lan_get_dev_list, "bound sub-devices")                    \
    X(242, FRM_DEL_SUB_DEV, request, decrypted, __lan_del_sub_dev, "deletes a sub-device")         \
    X(243, FRM_SUB_DEV_BIND_RPT, report, none, no_handler, "a sub-device was bound")               \
    X(244, FRM_SCENE_OPER, request, decrypted, lan_scene_operation, "scene operation")             \
    X(245, FRM_DOWNLOAD_CLOUD_CFG, request, decrypted, lan_download_cloud_config,                  \
      "stores cloud.config")                                                                       \
    X(246, FRM_DOWNLOAD_APP_CFG, request, decrypted, lan_download_app_config, "stores app.config") \
    X(247, FRM_READ_APP_CFG, request, raw, lan_read_app_config, "returns app.config")              \
    X(248, FRM_SCENE_PANEL, request, decrypted, lan_scene_panel, "scene-panel command")            \
    X(249, FRM_GW_UNACTIVE, request, raw, lan_deactivate, "deactivates the gateway")               \
    X(250, FRM_CHK_SOFT_VER, request, decrypted, __lan_chk_soft_ver,                               \
      "announces a firmware image of the gateway")                                                 \
    X(251, FRM_NOP, request, decrypted, __lan_nop, "accepted without an answer")                   \
    X(252, FRM_SET_CHANNEL, request, decrypted, lan_set_channel, "sets the Zigbee radio channel")  \
    X(253, FRM_GET_CHANNEL, request, raw, lan_get_channel, "returns the Zigbee radio channel")     \
    X(254, FRM_GET_LOG, request, raw, lan_upload_log, "uploads the gateway's log file in segments")

/** Numbers of the frame types by name. */
enum frame_type : uint32_t {
#define LAN_FRAME_TYPE_NUMBER(number, name, way, payload, handler, meaning) name = number,
    LAN_FRAME_TYPES(LAN_FRAME_TYPE_NUMBER)
#undef LAN_FRAME_TYPE_NUMBER
};
