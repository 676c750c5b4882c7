// The one way in which the agent's calls pass into the gateway: each service and each callback is
// named in call_table, does the scenario's bidding, is counted, and leaves its line in the trace.
#pragma once

#include "gateway/records.h"
#include "gateway/upgrade.h"

#include <array>
#include <cjson/cJSON.h>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace gateway {

/** What a call returns, and so what a scenario can make it return. */
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

/** Every service and callback there is. */
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

/** Collects the arguments of one call as JSON, in order. */
class call_arguments {
  public:
    call_arguments &number(std::string_view name, int64_t value);
    /** A text; null when absent. */
    call_arguments &text(std::string_view name, const char *value);
    /** A text that nobody may read in a trace: "***" unless it is absent or empty. */
    call_arguments &secret(std::string_view name, const char *value);
    /** A payload, as a text. */
    call_arguments &bytes(std::string_view name, const void *data, std::size_t length);
    /** A device record, as its id; null when absent. */
    call_arguments &device(std::string_view name, const dev_cntl_t *value);
    /** A firmware record, as its four fields; null when absent. */
    call_arguments &firmware(std::string_view name, const lan_fw_info_t *value);
    /** A parsed request or a member of one, its secrets as "***"; null when absent. */
    call_arguments &json(std::string_view name, const cJSON *item);
    [[nodiscard]] const std::string &members() const { return members_; }

  private:
    call_arguments &member(std::string_view name, std::string_view value);
    std::string members_;
};

/**
 * Whether a callback is not absent.
 *
 * @param number  its call()
 */
bool is_present(std::size_t number);

/**
 * The way of one call through the gateway. The agent's upgrade worker may outlive the agent's stop,
 * and so meet a gateway that closes: the close waits for the calls that have come in, and no more
 * come in then.
 */
class call_passage {
  public:
    call_passage();
    call_passage(const call_passage &) = delete;
    call_passage &operator=(const call_passage &) = delete;
    ~call_passage();
    /** False: the gateway is closed. */
    explicit operator bool() const { return is_open_; }

  private:
    bool is_open_;
};

/** Whether trace lines are wanted. */
bool tracing();
/**
 * Counts the call; waits for nothing.
 *
 * @return the result it has to return instead of doing its work, if any
 */
std::optional<int32_t> enter_call(std::size_t number);
/**
 * Writes the call's trace line.
 *
 * @param result  JSON
 */
void trace_call(std::size_t number, const call_arguments &arguments, std::string_view result);

std::string result_json(int64_t result);
std::string result_json(const char *text);
std::string result_json(const dev_cntl_t *device);

/**
 * One call of the agent. It does nothing, and returns 0 or none, once the gateway is closed.
 *
 * @param arguments  writes the call's arguments to a call_arguments; before the work, which may end
 * them
 * @param work       what the call does when it is not made to return something else
 */
template <typename Arguments, typename Work>
auto service(std::size_t number, Arguments &&arguments, Work &&work) -> decltype(work()) {
    using result_type = decltype(work());
    const call_passage passage;
    if (!passage) {
        return result_type();
    }
    const bool traced = call_table[number].is_traced && tracing();
    call_arguments list;
    if (traced) {
        arguments(list);
    }
    const std::optional<int32_t> fault = enter_call(number);
    if constexpr (std::is_void_v<result_type>) {
        if (!fault) {
            work();
        }
        if (traced) {
            trace_call(number, list, "null");
        }
    } else {
        result_type result{};
        if (!fault) {
            result = work();
        } else if constexpr (!std::is_pointer_v<result_type>) {
            result = static_cast<result_type>(*fault);
        }
        if (traced) {
            trace_call(number, list, result_json(result));
        }
        return result;
    }
}

/** As service, for a call that takes over the request when it returns 0. */
template <typename Work>
int32_t service_taking_request(std::size_t number, sf_cmd_t *command, Work &&work) {
    bool worked = false;
    const int32_t result = service(
        number, [&](call_arguments &list) { list.json("root", command->root); },
        [&] {
            worked = true;
            return work();
        });
    if (result == 0 && !worked) {
        cJSON_Delete(command->root);
    }
    return result;
}

/** Arguments of a call that has none worth telling. */
inline void no_arguments(call_arguments &) {}

/** A callback that is handed to the agent with a call, or null while it is absent. */
template <typename Function>
Function *callback_unless_absent(std::size_t number, Function *function) {
    return is_present(number) ? function : nullptr;
}

} // namespace gateway
