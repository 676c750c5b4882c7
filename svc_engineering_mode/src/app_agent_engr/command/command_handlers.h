/* The command handlers, as the table of frame types names them. Each sends its own answer. Server
 * task. */
#pragma once

#include "transport/request.h"

/** FRM_NOP: does nothing and does not answer. */
void __lan_nop(const lan_request &request);
/** FRM_DEV_LIST: the bound sub-devices. */
void __lan_get_dev_list(const lan_request &request);
/** FRM_DEV_LINE_STAT: the online and the offline sub-devices. */
void __lan_get_dev_line_stat(const lan_request &request);
/** FRM_DEL_SUB_DEV: deletes a sub-device. Always answers success. */
void __lan_del_sub_dev(const lan_request &request);
/** FRM_USER_BIND_REQ_ENGR: adds the sub-devices and answers with the radio channel. */
void lan_bind_sub_devices(const lan_request &request);
/** FRM_TP_CMD, FRM_TP_CMD_2: sets data points of a device. No answer when the device service
 * refuses. */
void lan_device_command(const lan_request &request);
/** FRM_GRP_EXEC: sets data points of a group. No answer when the device service refuses. */
void lan_group_command(const lan_request &request);
/** FRM_LOCAL_DP_QUERY, FRM_LOCAL_DP_QUERY_2: all data points of one device. */
void lan_query_device(const lan_request &request);
/** FRM_DP_QUERY: data points, answered by reports. */
void lan_query_data_points(const lan_request &request);
/** FRM_GRP_OPER: group operation; no answer on success, the group service reports the outcome. */
void lan_group_operation(const lan_request &request);
/** FRM_SCENE_CMD: executes a scene of a group. */
void lan_run_scene(const lan_request &request);
/** FRM_COM_SCENE_EXEC: executes a linkage scene. Success even when there is no such scene. */
void __lan_protocol_FRM_COM_SCENE_EXEC(const lan_request &request);
/** FRM_SCENE_LINKAGE: replaces or clears the stored scene-linkage set. */
void __lan_set_scene_linkage(const lan_request &request);
/** FRM_SCENE_OPER: scene operation; no answer on success, the scene service reports the outcome. */
void lan_scene_operation(const lan_request &request);
/** FRM_SCENE_PANEL: scene-panel command; no answer on success, the scene service reports the
 * outcome. */
void lan_scene_panel(const lan_request &request);
/** FRM_TOKEN_BIND: binds the installer's token. */
void lan_bind_token(const lan_request &request);
/** FRM_PERMIT_JOIN: opens or closes joining. */
void lan_permit_join(const lan_request &request);
/** FRM_WIFI_MODIFY: moves the gateway to another Wi-Fi network. */
void lan_modify_wifi(const lan_request &request);
/** FRM_GW_UNACTIVE: deactivates the gateway; the next frame has another key. */
void lan_deactivate(const lan_request &request);
/** FRM_DOWNLOAD_CLOUD_CFG: stores cloud.config and has it taken over, which ends engineering. */
void lan_download_cloud_config(const lan_request &request);
/** FRM_DOWNLOAD_APP_CFG: stores app.config. */
void lan_download_app_config(const lan_request &request);
/** FRM_READ_APP_CFG: returns app.config. */
void lan_read_app_config(const lan_request &request);
/** FRM_SET_CHANNEL: sets the Zigbee radio channel. */
void lan_set_channel(const lan_request &request);
/** FRM_GET_CHANNEL: returns the Zigbee radio channel. */
void lan_get_channel(const lan_request &request);
/** FRM_GET_LOG: sends the log file in segments and removes it. */
void lan_upload_log(const lan_request &request);
/** FRM_CHK_SOFT_VER: announces a firmware image of the gateway. */
void __lan_chk_soft_ver(const lan_request &request);
/** FRM_DEV_UPGRADE_INFO: announces a firmware image of any device. */
void __lan_dev_upgrade_info(const lan_request &request);
/** FRM_DEV_UPGRADE: offers the announced image to the upgrade service. A refusal by the service is
 * a second answer. */
void __lan_dev_upgrade(const lan_request &request);
/** FRM_DOWNLOAD_FIRMWARE: a piece of the image. Answered by the request for the next one. */
void __lan_download_firmware(const lan_request &request);
