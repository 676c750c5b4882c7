// The frame types as an app sees them: the one list of this side.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace lan_client {

/// Numbers that code refers to; the table knows those of the TCP channel.
namespace frame_type {
inline constexpr std::uint32_t ap_nw_cfg = 1;
inline constexpr std::uint32_t tp_cmd = 7;
inline constexpr std::uint32_t dp_report = 8;
inline constexpr std::uint32_t keepalive = 9;
inline constexpr std::uint32_t local_dp_query = 10;
inline constexpr std::uint32_t token_bind = 12;
inline constexpr std::uint32_t permit_join = 14;
inline constexpr std::uint32_t wifi_modify = 15;
inline constexpr std::uint32_t scene_cmd = 17;
inline constexpr std::uint32_t dp_query = 18;
inline constexpr std::uint32_t com_scene_exec = 19;
inline constexpr std::uint32_t udp_discovery = 19;
inline constexpr std::uint32_t udp_wifi_err = 20;
inline constexpr std::uint32_t grp_oper = 208;
inline constexpr std::uint32_t grp_exec = 209;
inline constexpr std::uint32_t dev_line_stat = 224;
inline constexpr std::uint32_t scene_linkage = 226;
inline constexpr std::uint32_t gw_unactive_rpt = 227;
inline constexpr std::uint32_t sub_dev_unbind_rpt = 228;
inline constexpr std::uint32_t dev_upgrade_info = 229;
inline constexpr std::uint32_t dev_upgrade = 230;
inline constexpr std::uint32_t download_firmware = 231;
inline constexpr std::uint32_t upgrade_percent_rpt = 232;
inline constexpr std::uint32_t subdevice_update_rpt = 233;
inline constexpr std::uint32_t user_bind_req_engr = 240;
inline constexpr std::uint32_t dev_list = 241;
inline constexpr std::uint32_t del_sub_dev = 242;
inline constexpr std::uint32_t sub_dev_bind_rpt = 243;
inline constexpr std::uint32_t scene_oper = 244;
inline constexpr std::uint32_t download_cloud_cfg = 245;
inline constexpr std::uint32_t download_app_cfg = 246;
inline constexpr std::uint32_t read_app_cfg = 247;
inline constexpr std::uint32_t scene_panel = 248;
inline constexpr std::uint32_t gw_unactive = 249;
inline constexpr std::uint32_t chk_soft_ver = 250;
inline constexpr std::uint32_t set_channel = 252;
inline constexpr std::uint32_t get_channel = 253;
inline constexpr std::uint32_t get_log = 254;
} // namespace frame_type

/// How the payload of a request travels.
enum class payload_coding {
    plain,
    encrypted, ///< with the TCP key
};

/// What to expect after a request.
enum class answer_rule {
    always,
    on_failure_only, ///< accepted in silence
    on_success_only, ///< refused in silence
    never,
    not_a_request, ///< only the gateway sends it
};

struct frame_type_info {
    std::uint32_t number;
    std::string_view name;
    payload_coding coding;
    answer_rule answer;
    std::string_view words; ///< what it does, to be read after the name
};

/// All frame types of the TCP channel in the order of their numbers.
[[nodiscard]] std::span<const frame_type_info> frame_types();

/// The entry of a number, or null.
[[nodiscard]] const frame_type_info *find_frame_type(std::uint32_t number);

/// The entry of a name, in any letter case and with or without its "FRM_", or null.
[[nodiscard]] const frame_type_info *find_frame_type(std::string_view name);

/// "FRM_DEV_LIST (241)", or "type 77" for a number that is not in the table.
[[nodiscard]] std::string frame_type_text(std::uint32_t number);

/// How to encode a request of this type: numbers that are not in the table can only be served by
/// a handler that the gateway's application added, and those get their payload decrypted.
[[nodiscard]] payload_coding request_coding(std::uint32_t number);

} // namespace lan_client
