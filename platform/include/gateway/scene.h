/* Scene and scene-linkage services. Called on the agent's server task; they may block shortly. */
#pragma once

#include "gateway/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Takes a scene operation.
 *
 * @return 0 = accepted, the request is the service's from then on
 */
int32_t engr_sf_send_scene_oper_cmd(sf_cmd_t *command);
/**
 * Takes a scene-panel command.
 *
 * @return 0 = accepted, the request is the service's from then on
 */
int32_t engr_sf_send_scene_panel_cmd(sf_cmd_t *command);

/**
 * Executes a linkage scene.
 *
 * @param scene_id  never null
 * @return 0 = executed
 */
int32_t scene_linkage_scene_exe(const char *scene_id);
/** @return 1 when the modification time differs from that of the stored scene set */
int32_t engr_check_modify_time_changed(int32_t modified);
/**
 * Clears the stored scene set.
 *
 * @return 0 = cleared
 */
int32_t engr_reset_scene_info_to_disk(void);
/**
 * Stores a scene set.
 *
 * @param total  its announced number of scenes
 * @param request  the parsed request, read during the call
 * @return 0 = stored
 */
int32_t engr_save_scene_link(int32_t total, int32_t modified, struct cJSON *request);
/**
 * Loads the stored scene set into the scene module.
 *
 * @return 0 = loaded
 */
int32_t engr_load_scene_info_from_disk(void);
/**
 * Re-initialises the scene-linkage module, without scenes.
 *
 * @return 0 = done
 */
int32_t engr_scene_linkage_module_reinit(void);

#ifdef __cplusplus
}
#endif
