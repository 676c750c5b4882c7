// The agent on the Linux port, with a fixed list of devices and services that do nothing.
//
//     agent_server DEVICES
//
// Says "ready" when it listens. A line "reports N" on standard input sends N reports to every
// client; the end of the input ends it.
#include "bench_site.h"
#include "engr_lan_agent.h"
#include "gateway/gateway.h"
#include "gateway/upgrade.h"
#include "linux_port/port.h"

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <semaphore>
#include <string>
#include <vector>

namespace {

constexpr uint32_t bind_report = 243;

gw_cntl_t gateway_record{};
std::vector<dev_cntl_t> devices;

void make_devices(uint32_t count) {
    devices.resize(count);
    for (uint32_t i = 0; i < count; ++i) {
        dev_cntl_t &device = devices[i];
        std::strcpy(device.dev_id, bench::device_id(i).c_str());
        std::strcpy(device.pid, bench::product_id);
        device.state = DEV_STATE_BOUND;
        device.online = 1;
        device.next = i + 1 < count ? &devices[i + 1] : nullptr;
    }
    gateway_record.dev_list = count > 0 ? devices.data() : nullptr;
    gateway_record.dev_count = count;
}

int take_piece(lan_fw_info_t *, uint32_t, uint32_t, const uint8_t *, uint32_t, uint32_t *, void *) {
    return 0;
}

int end_of_transfer(lan_fw_info_t *, int, void *) {
    engr_set_gw_ext_stat(GW_EXT_STAT_UPGRADE_ENDED);
    return 0;
}

int32_t take_firmware(lan_fw_info_t *firmware) {
    return lan_gw_start_upgrade(nullptr, firmware, take_piece, nullptr, end_of_transfer, 0,
                                bench::piece_bytes);
}

std::binary_semaphore listening{0};

bool start() {
    linux_port::set_server_observer([](const linux_port::server_notice &notice) {
        if (notice.event == linux_port::server_event::listening) {
            listening.release();
        }
    });
    kelo_hal_mutex_create_init(&gateway_record.dev_mutex);
    kelo_hal_mutex_create_init(&gateway_record.field_mutex);
    gateway_record.gw_lan_ug_cb = take_firmware;
    if (engr_lan_pro_cntl_init(0) != ENGR_OK) {
        return false;
    }
    listening.acquire();
    return true;
}

} // namespace

gw_cntl_t *engr_get_gw_cntl() {
    return &gateway_record;
}

int main(int argc, char **argv) {
    if (argc != 2) {
        std::cerr << "usage: agent_server DEVICES\n";
        return 2;
    }
    make_devices(static_cast<uint32_t>(std::atoi(argv[1])));
    if (!start()) {
        std::cerr << "agent_server: the agent does not start\n";
        return 1;
    }
    std::cout << "ready" << std::endl;
    std::string word;
    unsigned reports = 0;
    while (std::cin >> word >> reports) {
        for (unsigned i = 0; i < reports; ++i) {
            engr_lan_data_report_cb(bind_report, 0, bench::report, sizeof bench::report - 1);
        }
    }
    engr_lan_pro_cntl_exit();
    linux_port::shutdown();
}
