#include "agent_calls.h"

#include "agent_run.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/crypto.h"
#include "support/numbers.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <new>

namespace gatewayd {
namespace {

using nlohmann::ordered_json;

/** The arguments of one call, by place. */
class argument_list {
  public:
    explicit argument_list(const std::vector<std::string> &texts) : texts_(texts) {}

    [[nodiscard]] bool has(std::size_t place) const { return place < texts_.size(); }
    /** A text, null when absent. */
    [[nodiscard]] const char *text(std::size_t place) const {
        return has(place) ? texts_[place].c_str() : nullptr;
    }
    /** Bytes of a text, 0 when absent. */
    [[nodiscard]] std::size_t size(std::size_t place) const {
        return has(place) ? texts_[place].size() : 0;
    }
    template <typename Number>
    [[nodiscard]] Number number(std::size_t place, const char *name, Number absent = 0) const {
        return has(place) ? support::need_whole_number<Number>(name, texts_[place]) : absent;
    }
    /** Length of the data at a place, as given at another; never more than there is. */
    [[nodiscard]] uint32_t length(std::size_t place, const char *name,
                                  std::size_t available) const {
        const auto length = number<uint32_t>(place, name, static_cast<uint32_t>(available));
        if (length > available) {
            throw gateway::usage_error(
                fmt::format("{}: the data has only {} bytes", name, available));
        }
        return length;
    }

  private:
    const std::vector<std::string> &texts_;
};

/** A data-point report whose block is made of one text. */
ordered_json report_data_points(const argument_list &list) {
    if (!list.has(0)) {
        return engr_lan_dp_sata_report(nullptr, list.number<uint32_t>(1, "len"));
    }
    const std::size_t size = sizeof(lan_dp_report_t) + list.size(0) + 1;
    std::vector<char> block(size);
    auto *report = new (block.data()) lan_dp_report_t{};
    std::memcpy(report->data, list.text(0), list.size(0) + 1);
    return engr_lan_dp_sata_report(report, list.length(1, "len", size));
}

/** A transfer of the image that was offered last; its callbacks are the upgrade service's. */
ordered_json call_start_upgrade(const argument_list &list) {
    return gateway::start_upgrade({.cid = list.has(0) ? list.text(0) : "",
                                   .chunk_size = list.number<uint32_t>(2, "chunk_size"),
                                   .percent = list.number<uint32_t>(1, "rpt_percent") != 0});
}

/** Reads bytes of a connection into a buffer that is thrown away. */
ordered_json receive_exactly(const argument_list &list) {
    constexpr uint32_t buffer_size_max = 1 << 20;
    const auto size = list.number<uint32_t>(1, "buffer_size");
    if (size > buffer_size_max) {
        throw gateway::usage_error(fmt::format("buffer_size: may be 0 to {}", buffer_size_max));
    }
    std::vector<uint8_t> buffer(size);
    return kelo_net_recv_nd_size(list.number<int32_t>(0, "socket", -1), buffer.data(), size,
                                 list.number<uint32_t>(2, "needed"));
}

/** One exported function. */
struct exported_function {
    const char *name;
    const char *arguments;
    std::size_t most_arguments;
    ordered_json (*call)(const argument_list &list);
};

constexpr exported_function functions[] = {
    {"engr_lan_pro_cntl_init", "[MODE]", 1,
     [](const argument_list &list) -> ordered_json {
         return start_agent(list.number<int32_t>(0, "mode"));
     }},
    {"engr_lan_pro_cntl_exit", "", 0,
     [](const argument_list &) -> ordered_json { return stop_agent(); }},
    {"engr_lan_pro_cntl_get_valid_connect_cnt", "", 0,
     [](const argument_list &) -> ordered_json {
         return engr_lan_pro_cntl_get_valid_connect_cnt();
     }},
    {"lpc_close_all_socket", "", 0,
     [](const argument_list &) -> ordered_json {
         lpc_close_all_socket();
         return nullptr;
     }},
    {"engr_lan_data_report_cb", "[FR_TYPE [RET [DATA [LEN]]]]", 4,
     [](const argument_list &list) -> ordered_json {
         return engr_lan_data_report_cb(list.number<uint32_t>(0, "fr_type"),
                                        list.number<uint32_t>(1, "ret"), list.text(2),
                                        list.length(3, "len", list.size(2)));
     }},
    {"engr_lan_dp_sata_report", "[DATA [LEN]]", 2, report_data_points},
    {"engr_lan_sub_dev_bind_report", "[CID [PID]]", 2,
     [](const argument_list &list) -> ordered_json {
         return engr_lan_sub_dev_bind_report(list.text(0), list.text(1));
     }},
    {"engr_lan_sub_dev_unbind_report", "[CID]", 1,
     [](const argument_list &list) -> ordered_json {
         return engr_lan_sub_dev_unbind_report(list.text(0));
     }},
    {"engr_lan_gw_unactive_report", "", 0,
     [](const argument_list &) -> ordered_json { return engr_lan_gw_unactive_report(); }},
    {"engr_rpt_upload_upgrade_percent", "[PROGRESS [CID [RESERVED]]]", 3,
     [](const argument_list &list) -> ordered_json {
         return engr_rpt_upload_upgrade_percent(list.number<int32_t>(0, "progress"), list.text(1),
                                                list.number<uint8_t>(2, "reserved"));
     }},
    {"lan_gw_start_upgrade", "[DEV_ID [RPT_PERCENT [CHUNK_SIZE]]]", 3, call_start_upgrade},
    {"engr_lan_gw_subdevice_update", "[DEV_ID [SW_VER [FIRMWARE_TYPE [RESULT [RESERVED]]]]]", 5,
     [](const argument_list &list) -> ordered_json {
         return engr_lan_gw_subdevice_update(
             list.text(0), list.text(1), list.number<uint32_t>(2, "firmware_type"),
             list.number<uint32_t>(3, "result"), list.number<uint32_t>(4, "reserved"));
     }},
    {"engr_lan_ap_nw_cfg_start", "", 0,
     [](const argument_list &) -> ordered_json { return gateway::listen_for_credentials(); }},
    {"engr_lan_ap_nw_cfg_stop", "", 0,
     [](const argument_list &) -> ordered_json {
         engr_lan_ap_nw_cfg_stop();
         return nullptr;
     }},
    {"engr_lan_ap_nw_cfg_error_report", "[DESC [RESULT]]", 2,
     [](const argument_list &list) -> ordered_json {
         engr_lan_ap_nw_cfg_error_report(list.text(0), list.number<int32_t>(1, "result"));
         return nullptr;
     }},
    {"engr_lan_get_tcp_key", "", 0,
     [](const argument_list &) -> ordered_json {
         uint8_t key[AES128_KEY_SIZE]; // stays here: no key is printed
         return engr_lan_get_tcp_key(key);
     }},
    {"kelo_net_recv_nd_size", "[SOCKET [BUFFER_SIZE [NEEDED]]]", 3, receive_exactly},
    {"engr_lan_protocol_register_cb", "[FRAME_TYPE]", 1,
     [](const argument_list &list) -> ordered_json {
         return gateway::register_frame_handler(list.number<int32_t>(0, "frame_type"), 0);
     }},
};

} // namespace

ordered_json call_agent(const std::string &name, const std::vector<std::string> &arguments) {
    std::string known;
    for (const exported_function &function : functions) {
        if (name == function.name) {
            if (arguments.size() > function.most_arguments) {
                throw gateway::usage_error(
                    fmt::format("usage: call {} {}", name, function.arguments));
            }
            return function.call(argument_list(arguments));
        }
        known += std::string(" ") + function.name;
    }
    throw gateway::usage_error("no such function; there are:" + known);
}

ordered_json agent_functions() {
    auto all = ordered_json::array();
    for (const exported_function &function : functions) {
        all.push_back({{"name", function.name}, {"arguments", function.arguments}});
    }
    return all;
}

} // namespace gatewayd
