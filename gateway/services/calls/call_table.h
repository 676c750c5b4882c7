// The services and callbacks through which the agent calls the gateway.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace gateway {

/** The type that a call returns, and so the results that a fault can have. */
enum class call_kind : uint8_t {
    number,  /**< a 32-bit result code or number */
    byte,    /**< 0 to 255 */
    pointer, /**< a pointer: only none, by 0 */
    nothing, /**< nothing: 0 keeps it from its work */
    certain  /**< cannot misbehave */
};

/** One service or callback. */
struct call_info {
    std::string_view name;
    call_kind kind;
    bool is_callback = false;
    bool is_traced = true;
    bool may_wait = true; /**< false: the agent calls it where nothing may wait for a file */
};

/** All services and callbacks. */
inline constexpr std::array call_table = {
    call_info{"engr_get_gw_ext_stat", call_kind::byte},
    call_info{"engr_set_gw_ext_stat", call_kind::nothing, false, true, false},
    call_info{"engr_get_dev_cntl", call_kind::pointer},
    call_info{"engr_get_gw_dev_cntl", call_kind::pointer},
    call_info{"engr_pack_data_with_cmd", call_kind::number},
    call_info{"engr_parse_data_with_cmd", call_kind::number},
    call_info{"engr_get_wired_wifi_current_net", call_kind::number, false, false},
    call_info{"bnw_get_ip", call_kind::number, false, false},
    call_info{"wf_get_ip", call_kind::number, false, false},
    call_info{"engr_sf_send_gw_dev_cmd", call_kind::number},
    call_info{"engr_sf_pack_local_obj_dp_data", call_kind::pointer},
    call_info{"engr_sf_respone_obj_dp_query", call_kind::number},
    call_info{"engr_gw_unbind_device_inner", call_kind::number},
    call_info{"gw_engineer_add_sub_dev_to_list", call_kind::number},
    call_info{"engr_gw_cntl_init_local", call_kind::number},
    call_info{"engr_sf_send_grp_oper_cmd", call_kind::number},
    call_info{"engr_sf_send_scene_oper_cmd", call_kind::number},
    call_info{"engr_sf_send_scene_panel_cmd", call_kind::number},
    call_info{"scene_linkage_scene_exe", call_kind::number},
    call_info{"engr_check_modify_time_changed", call_kind::number},
    call_info{"engr_reset_scene_info_to_disk", call_kind::number},
    call_info{"engr_save_scene_link", call_kind::number},
    call_info{"engr_load_scene_info_from_disk", call_kind::number},
    call_info{"engr_scene_linkage_module_reinit", call_kind::number},
    call_info{"engr_gw_user_token_bind", call_kind::number},
    call_info{"gw_wifi_modify_and_conn", call_kind::number},
    call_info{"engr_gw_unactive", call_kind::number},
    call_info{"get_config_path", call_kind::certain},
    call_info{"wd_common_write", call_kind::number},
    call_info{"gw_engineer_sync_default_config", call_kind::number},
    call_info{"gw_read_file", call_kind::number},
    call_info{"gw_set_channel", call_kind::number},
    call_info{"gw_get_channel", call_kind::number},
    call_info{"wf_wk_mode_get", call_kind::number},
    call_info{"wf_ap_stop", call_kind::number},
    call_info{"wf_station_connect", call_kind::number},
    call_info{"ak_lan_rev_active_task", call_kind::nothing},
    call_info{"get_wf_gw_nw_status", call_kind::number},
    call_info{"get_ak_active_status", call_kind::number},
    call_info{"ak_lan_nwc_fin_inform", call_kind::number},
    call_info{"ak_lan_disc_init", call_kind::number},
    call_info{"ak_lan_disc_pack_send", call_kind::number},
    call_info{"gw_lan_ug_cb", call_kind::number, true},
    call_info{"dev_lan_ug_cb", call_kind::number, true},
    call_info{"get_log_path", call_kind::number, true},
    call_info{"sync_config", call_kind::number, true},
    call_info{"engr_end_notify", call_kind::nothing, true},
    call_info{"permit_join", call_kind::number, true},
    call_info{"dev_delete_notify", call_kind::nothing, true},
    call_info{"scene_exec", call_kind::number, true},
    call_info{"get_file_cb", call_kind::number, true},
    call_info{"ug_notify_cb", call_kind::number, true},
    call_info{"finish_cb", call_kind::number, true},
    call_info{"lan_protocol_cb", call_kind::certain},
};

/** Number of a call in the table; a name that is not there does not compile. */
consteval std::size_t call(std::string_view name) {
    for (std::size_t i = 0; i < call_table.size(); ++i) {
        if (call_table[i].name == name) {
            return i;
        }
    }
    throw "no such service or callback";
}

} // namespace gateway
