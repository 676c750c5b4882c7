/*
 * Scene and scene-linkage services. Called on the agent's server task; they may block briefly. Of a
 * result the agent only tells 0 from the rest, unless said otherwise.
 */
#pragma once

#include "gateway/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Takes a scene operation, any JSON value from FRM_SCENE_OPER; the reference gateway's form is
 * {"sid": SID, "gid": GID, "op": "save", "actions": [{"cid": ID, "dps": {"1": true}}]}.
 *
 * @param command  the record is read during the call only
 * @return 0 = accepted: the root is the service's from then on. The agent does not answer; the
 *     service reports the outcome by engr_lan_data_report_cb, with the frame type of the request.
 *     Else the root stays the agent's, and the app is told "scene oper failed"
 */
int32_t engr_sf_send_scene_oper_cmd(sf_cmd_t *command);

/**
 * Takes a scene-panel command from FRM_SCENE_PANEL: an object with the panel's id as a text "cid",
 * which the agent has checked; the reference gateway's form is
 * {"cid": ID, "buttons": [{"button": 1, "sid": SID, "gid": GID}]}.
 *
 * @param command  the record is read during the call only
 * @return as engr_sf_send_scene_oper_cmd; the app is told "set panel cmd error" with the cid
 */
int32_t engr_sf_send_scene_panel_cmd(sf_cmd_t *command);

/**
 * Executes a scene of the loaded scene-linkage set.
 *
 * @param scene_id  "sceneId" of the request, never null
 * @return 0 = executed; not used, the app gets a success in any case
 */
int32_t scene_linkage_scene_exe(const char *scene_id);

/**
 * Whether a scene-linkage set is another one than that which is stored.
 *
 * @param modified  its modification time, "gmtModified" of the request
 * @return 1 when it is: the agent then resets, saves and loads, in this order; any other value when
 *     the stored one is up to date
 */
int32_t engr_check_modify_time_changed(int32_t modified);

/**
 * Clears the stored scene-linkage set; also called after a save that failed.
 *
 * @return 0 = cleared; not used
 */
int32_t engr_reset_scene_info_to_disk(void);

/**
 * Stores a scene-linkage set.
 *
 * @param total     its announced number of scenes, "totalCount" of the request; never 0
 * @param modified  its modification time, for engr_check_modify_time_changed
 * @param request   the whole request, read during the call. The agent has looked at no other
 *     member; the reference gateway has the scenes in "scenes", each {"sceneId": ID, "name": TEXT,
 *     "actions": [...]}
 * @return 0 = stored; else the app is told "get scene error"
 */
int32_t engr_save_scene_link(int32_t total, int32_t modified, struct cJSON *request);

/**
 * Loads the stored set, so that its scenes can be executed.
 *
 * @return 0 = loaded; not used
 */
int32_t engr_load_scene_info_from_disk(void);

/**
 * Restarts the scene-linkage module without scenes: an app has sent a set of 0 scenes. The agent
 * clears the stored set afterwards.
 *
 * @return 0 = done; not used
 */
int32_t engr_scene_linkage_module_reinit(void);

#ifdef __cplusplus
}
#endif
