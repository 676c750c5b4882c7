/* What threads of the gateway do, and the misfortunes. */
#include "gateway_services/host.h"
#include "gateway_services/operate.h"

#include "gateway/gateway.h"
#include "stage.h"

#include <stdexcept>

namespace worlds {

namespace {

/** Makes a report under its number. */
template <typename Make>
void report(stage &at, actor_run &by, const Make &make) {
    const size_t number = at.reports.size();
    at.reports.push_back({.by = name_of(by.as), .called_ms = at.world.now_ms()});
    const bool accepted = make("report-" + std::to_string(number)) == 0;
    at.reports[number].accepted = accepted;
    at.reports[number].returned_ms = at.world.now_ms();
}

void report_at_once(stage &at, actor_run &by, uint32_t number) {
    report(at, by, [&](const std::string &id) {
        return number % 2 == 0 ? engr_lan_sub_dev_unbind_report(id.c_str())
                               : engr_lan_sub_dev_bind_report(id.c_str(), "p1");
    });
}

void queue_report(stage &at, actor_run &by, uint32_t) {
    report(at, by, [](const std::string &id) {
        const std::string block = std::string(8, '\0') + R"({"cid":")" + id + R"("})" + '\0';
        return engr_lan_dp_sata_report(reinterpret_cast<const lan_dp_report_t *>(block.data()),
                                       static_cast<uint32_t>(block.size()));
    });
}

/** Runs a call of the gateway's services, which refuse by an exception. */
template <typename Change>
void change(stage &at, const Change &make) {
    try {
        make();
    } catch (const std::runtime_error &refusal) {
        if (!at.has_misfortune) {
            at.problem(std::string("the gateway's services refused: ") + refusal.what());
        }
    }
}

void change_device(stage &at, actor_run &, uint32_t number) {
    change(at, [&] {
        ::gateway::set_device_field("door", "online", number % 2 == 0 ? "1" : "0");
        ::gateway::report_data_points("lamp", number % 2 == 0 ? R"({"1":true})" : R"({"1":false})");
    });
}

void stop(stage &at, actor_run &, uint32_t) {
    constexpr uint64_t longest_stop_ms = 1'000;
    const uint64_t begun = at.world.now_ms();
    if (engr_lan_pro_cntl_exit() != 0) {
        at.problem("a stop failed");
    }
    if (at.world.now_ms() - begun > longest_stop_ms + at.service_ms) {
        at.problem("a stop took " + std::to_string(at.world.now_ms() - begun) + " ms");
    }
}

void start(stage &at, actor_run &, uint32_t) {
    if (engr_lan_pro_cntl_init(ENGR_MODE_LAN) != 0 && !at.has_misfortune) {
        at.problem("a start failed");
    }
}

int take_chunk(lan_fw_info_t *, uint32_t, uint32_t offset, const uint8_t *, uint32_t,
               uint32_t *remain_len, void *argument) {
    constexpr uint32_t bad_offset = 8;
    transfer &under_way = *static_cast<transfer *>(argument);
    under_way.at->world.run_for(under_way.at->service_ms);
    *remain_len = 0;
    under_way.may_have_none |= offset == bad_offset;
    return offset == bad_offset ? -1 : 0;
}

int take_outcome(lan_fw_info_t *, int, void *argument) {
    transfer &ended = *static_cast<transfer *>(argument);
    if (++ended.outcomes > 1) {
        ended.at->problem("a transfer had two outcomes");
    }
    ended.at->world.run_for(ended.at->service_ms);
    return 0;
}

stage *current_stage;

int32_t start_transfer(const char *dev_id) {
    constexpr uint32_t chunk_bytes = 4;
    stage &at = *current_stage;
    transfer &added = at.transfers.emplace_back(transfer{.at = &at});
    at.excuse_transfers(&added);
    const int32_t result =
        lan_gw_start_upgrade(dev_id, &at.offered, take_chunk, &added, take_outcome, 1, chunk_bytes);
    at.excuse_transfers(&added); // and those that another thread has started meanwhile
    added.may_have_none |= result != 0;
    return result;
}

void report_version(stage &at, actor_run &, uint32_t) {
    at.excuse_transfers();
    engr_lan_gw_subdevice_update("lamp", "2", 0, 0, 0);
    at.excuse_transfers();
}

void start_transfer_unasked(stage &at, actor_run &, uint32_t number) {
    at.service_ms = number % 3 * 10;
    static_cast<void>(start_transfer(number % 2 == 0 ? "lamp" : nullptr));
}

constexpr action application[] = {
    {"reports at once", 8, report_at_once},
    {"queues a report", 8, queue_report},
    {"changes a device", 3, change_device},
    {"stops the agent", 2, stop},
    {"starts the agent", 4, start},
    {"closes all connections", 1, [](stage &, actor_run &, uint32_t) { lpc_close_all_socket(); }},
    {"starts a transfer", 2, start_transfer_unasked},
    {"reports a version", 2, report_version},
    {"counts the apps", 2,
     [](stage &at, actor_run &, uint32_t) {
         const int32_t count = engr_lan_pro_cntl_get_valid_connect_cnt();
         if (count < 0 || count > 10) {
             at.problem("the agent counts " + std::to_string(count) + " apps");
         }
     }},
};

void make_calls_fail(stage &at, uint32_t number, bool lasting, double odds) {
    constexpr const char *operations[] = {"Malloc",
                                          "CreateAndStart",
                                          "kelo_hal_net_send",
                                          "kelo_hal_net_recv",
                                          "kelo_hal_net_accept",
                                          "kelo_hal_net_select",
                                          "sys_add_timer",
                                          "sys_start_timer",
                                          "kelo_hal_net_socket_create",
                                          "cmmod_post_msg",
                                          "cmmod_reg_msgcb",
                                          "kelo_hal_mutex_create_init"};
    const size_t count = std::size(operations);
    at.has_misfortune = true;
    at.world.fail(operations[number % count],
                  {.first = 1 + number / count % 8, .lasting = lasting, .odds = odds});
}

constexpr action misfortune[] = {
    {"makes one call fail", 3,
     [](stage &at, actor_run &, uint32_t number) { make_calls_fail(at, number, false, 1); }},
    {"makes calls fail from now on", 1,
     [](stage &at, actor_run &, uint32_t number) { make_calls_fail(at, number, true, 1); }},
    {"makes some calls fail", 2,
     [](stage &at, actor_run &, uint32_t number) { make_calls_fail(at, number, true, 0.2); }},
    {"ends", 2, [](stage &at, actor_run &, uint32_t) { at.world.clear_faults(); }},
    {"sets the clock", 1,
     [](stage &at, actor_run &, uint32_t number) {
         constexpr int64_t month_s = 32 * 24 * 3600;
         at.world.jump_posix(number % 2 == 0 ? month_s : -month_s);
     }},
};

} // namespace

void open_gateway(stage &at) {
    current_stage = &at;
    ::gateway::open({.store_path = ":memory:",
                     .initial_site = ::gateway::parse_site(
                         R"({"gateway": {"gw_id": "gw0001", "product_key": "pk"},
                             "devices": [{"dev_id": "lamp", "pid": "p1", "state": 1, "online": 1,
                                          "dps": {"1": true}},
                                         {"dev_id": "door", "pid": "p2", "state": 1}]})",
                         "site"),
                     .faults = {},
                     .trace = [](std::string_view) {},
                     .address = [] { return std::string("192.168.1.1"); }});
    engr_get_gw_cntl()->gw_lan_ug_cb = [](lan_fw_info_t *firmware) {
        current_stage->offered = *firmware;
        return start_transfer(nullptr);
    };
}

void close_gateway() {
    ::gateway::close();
}

std::span<const action> application_actions() {
    return application;
}

std::span<const action> misfortune_actions() {
    return misfortune;
}

} // namespace worlds
