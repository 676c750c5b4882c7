// The gateway's services for a benchmark: there, and without effect.
#include "gateway/config.h"
#include "gateway/device.h"
#include "gateway/gateway.h"
#include "gateway/group.h"
#include "gateway/scene.h"

#include <atomic>

namespace {

constexpr int32_t refused = -1;
std::atomic<uint8_t> extended_state{0};

} // namespace

uint8_t engr_get_gw_ext_stat() {
    return extended_state;
}
void engr_set_gw_ext_stat(uint8_t state) {
    extended_state = state;
}

dev_cntl_t *engr_get_dev_cntl(const char *) {
    return nullptr;
}
dev_cntl_t *engr_get_gw_dev_cntl() {
    return nullptr;
}
int32_t engr_sf_send_gw_dev_cmd(sf_cmd_t *) {
    return refused;
}
char *engr_sf_pack_local_obj_dp_data(dev_cntl_t *, int32_t, int32_t, int32_t, int32_t, int32_t) {
    return nullptr;
}
int32_t engr_sf_respone_obj_dp_query(cJSON *, cJSON *) {
    return refused;
}
int32_t engr_gw_unbind_device_inner(dev_cntl_t *) {
    return refused;
}
int32_t engr_pack_data_with_cmd(uint8_t, const char *, uint32_t, uint32_t, uint8_t **, uint32_t *) {
    return refused;
}
int32_t engr_parse_data_with_cmd(uint8_t, const uint8_t *, uint32_t, char **) {
    return refused;
}

int32_t engr_gw_user_token_bind(const char *) {
    return refused;
}
int32_t gw_wifi_modify_and_conn(const char *, const char *) {
    return refused;
}
int32_t engr_gw_unactive(const uint8_t *) {
    return refused;
}
int32_t gw_engineer_add_sub_dev_to_list(const char *, uint32_t) {
    return refused;
}
int32_t engr_gw_cntl_init_local(int32_t *) {
    return refused;
}

int32_t engr_sf_send_grp_oper_cmd(sf_cmd_t *) {
    return refused;
}
int32_t engr_sf_send_scene_oper_cmd(sf_cmd_t *) {
    return refused;
}
int32_t engr_sf_send_scene_panel_cmd(sf_cmd_t *) {
    return refused;
}
int32_t scene_linkage_scene_exe(const char *) {
    return refused;
}
int32_t engr_check_modify_time_changed(int32_t) {
    return refused;
}
int32_t engr_reset_scene_info_to_disk() {
    return refused;
}
int32_t engr_save_scene_link(int32_t, int32_t, cJSON *) {
    return refused;
}
int32_t engr_load_scene_info_from_disk() {
    return refused;
}
int32_t engr_scene_linkage_module_reinit() {
    return refused;
}

const char *get_config_path() {
    return "/nonexistent/";
}
int32_t wd_common_write(const char *, const uint8_t *, uint32_t) {
    return refused;
}
int32_t gw_engineer_sync_default_config() {
    return refused;
}
int32_t gw_read_file(const char *, char **) {
    return refused;
}
int32_t gw_set_channel(const char *, uint32_t) {
    return refused;
}
int32_t gw_get_channel(int32_t *) {
    return refused;
}
