// gateway/scene.h: scenes of groups, scene panels, and the scene-linkage set.
#include "gateway/scene.h"

#include "calls/calls.h"
#include "calls/requests.h"
#include "subjects/scenes.h"

using namespace gateway;

int32_t engr_sf_send_scene_oper_cmd(sf_cmd_t *command) {
    return service_taking_request(call("engr_sf_send_scene_oper_cmd"), command->root,
                                  [&] { return operate_scene(command->root); });
}

int32_t engr_sf_send_scene_panel_cmd(sf_cmd_t *command) {
    return service_taking_request(call("engr_sf_send_scene_panel_cmd"), command->root,
                                  [&] { return assign_panel(command->root); });
}

int32_t scene_linkage_scene_exe(const char *scene_id) {
    return guarded_service(call("scene_linkage_scene_exe"), {{"scene_id", scene_id}},
                           [&] { execute_linkage_scene(scene_id); });
}

int32_t engr_check_modify_time_changed(int32_t modified) {
    return service(call("engr_check_modify_time_changed"), {{"modified", modified}}, [&] {
        bool is_new = true; // what cannot be read is fetched again
        guarded([&] { is_new = is_new_linkage(modified); });
        return int32_t{is_new};
    });
}

int32_t engr_reset_scene_info_to_disk(void) {
    return guarded_service(call("engr_reset_scene_info_to_disk"), {}, reset_linkage);
}

int32_t engr_save_scene_link(int32_t total, int32_t modified, cJSON *request) {
    return guarded_service(call("engr_save_scene_link"),
                           {{"total", total}, {"modified", modified}, {"root", request}}, [&] {
                               read_request(request, [&](const support::json_value &set) {
                                   save_linkage(total, modified, set);
                               });
                           });
}

int32_t engr_load_scene_info_from_disk(void) {
    return guarded_service(call("engr_load_scene_info_from_disk"), {}, load_linkage);
}

int32_t engr_scene_linkage_module_reinit(void) {
    return guarded_service(call("engr_scene_linkage_module_reinit"), {}, unload_linkage);
}
