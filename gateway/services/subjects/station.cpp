#include "subjects/station.h"

#include "calls/calls.h"
#include "calls/log.h"
#include "calls/results.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"
#include "gateway_services/host.h"
#include "platform/clock.h"
#include "platform/owners.h"
#include "platform/thread.h"
#include "platform/wifi.h"
#include "store/changes.h"
#include "store/records.h"
#include "subjects/installer.h"
#include "subjects/network.h"

#include <utility>

namespace gateway {
namespace {

constexpr thrd_param_t joining_thread{64 * 1024, 2, "wifi_join"};
/** Time that the station has for a network after a failure was told, before the access point comes
 * back. */
constexpr uint32_t station_time_ms = 5000;
constexpr uint32_t configuring_by_access_point = 1;

kelo_mutex_t access_point_mutex; // guards what follows
thrd_handle_t joining;
bool is_joining; /**< the thread is at work; it ends with its last step */
bool access_points_end;
bool has_listened;

bool shall_go_on() {
    const platform::held_mutex guard(access_point_mutex);
    return !access_points_end;
}

void give_joining_back() {
    const platform::held_mutex guard(access_point_mutex);
    is_joining = false;
}

/** Ends the listener, unless there is none; waits for finish_cb. */
void stop_listening() {
    bool listens = false;
    {
        const platform::held_mutex guard(access_point_mutex);
        listens = std::exchange(has_listened, false);
    }
    if (listens) {
        engr_lan_ap_nw_cfg_stop();
    }
}

bool is_configuring() {
    const gw_cntl_t &gateway = the_gateway().shared;
    const platform::held_mutex guard(gateway.field_mutex);
    return gateway.nw_cfg_stat == configuring_by_access_point;
}

/**
 * Connects the station with what the record says.
 *
 * @return the Wi-Fi layer's result
 */
int32_t connect_as_recorded() {
    gw_cntl_t &gateway = the_gateway().shared;
    std::string ssid;
    std::string password;
    {
        const platform::held_mutex guard(gateway.field_mutex);
        ssid = gateway.wf_ssid;
        password = gateway.wf_passwd;
    }
    return wf_station_connect(ssid.c_str(), password.c_str());
}

/** The network has been joined, or the access point comes back for another try. */
void end_joining() {
    if (end_wifi_configuration()) {
        stop_listening();
        guarded([] { set_gateway_field("nw_cfg_stat", "0"); });
        return;
    }
    for (;;) {
        kelo_hal_system_sleep(station_time_ms);
        if (!shall_go_on() || !is_configuring()) {
            return;
        }
        stop_listening();
        const int32_t result = open_access_point();
        if (result == 0) {
            return;
        }
        GATEWAY_LOG(LOG_LEVEL_FAILURE, "nothing listens for credentials, trying on: result %d",
                    result);
    }
}

/** Body of the thread that joins the network. The access point stays until the station has its
 * network, since a failure is told to the apps there. */
void join_network(void *) {
    const int32_t result = connect_as_recorded();
    if (result == 0) {
        wf_ap_stop();
    } else {
        engr_lan_ap_nw_cfg_error_report("the Wi-Fi network cannot be joined", result);
    }
    end_joining();
    give_joining_back();
}

/**
 * Claims the joining of a network.
 *
 * @return the thread of the one before, which has ended
 * @throws refused
 */
thrd_handle_t claim_joining() {
    const platform::held_mutex guard(access_point_mutex);
    if (is_joining || access_points_end) {
        throw refused("a Wi-Fi network is being joined already");
    }
    is_joining = true;
    return std::exchange(joining, nullptr);
}

/**
 * Starts the thread that joins the network.
 *
 * @return whether it runs
 */
bool start_joining() {
    const platform::held_mutex guard(access_point_mutex);
    return !access_points_end &&
           CreateAndStart(&joining, nullptr, nullptr, join_network, nullptr, &joining_thread) == 0;
}

/**
 * Remembers the credentials.
 *
 * @throws refused, usage_error
 */
void take_credentials(const char *ssid, const char *passwd, const char *token) {
    DeleteThrdHandle(claim_joining());
    try {
        store_wifi(ssid, passwd == nullptr ? "" : passwd, token);
    } catch (...) {
        give_joining_back();
        throw;
    }
}

int call_finish_cb(const char *ssid, const char *passwd, const char *token) {
    const auto arguments = [&](call_arguments &list) {
        list.text("ssid", ssid).secret("passwd", passwd).secret("token", token);
    };
    bool is_taken = false;
    int32_t result = service(call("finish_cb"), arguments, [&] {
        return guarded([&] {
            take_credentials(ssid, passwd, token);
            is_taken = true;
        });
    });
    // The network is joined after the trace has told that it is going to be.
    if (is_taken && !start_joining()) {
        GATEWAY_LOG(LOG_LEVEL_FAILURE, "the Wi-Fi network cannot be joined: no thread");
        give_joining_back();
        result = result_failed;
    }
    return result;
}

} // namespace

int32_t listen_for_credentials() {
    {
        const platform::held_mutex guard(access_point_mutex);
        has_listened = true;
    }
    return engr_lan_ap_nw_cfg_start(callback_unless_absent(call("finish_cb"), call_finish_cb));
}

int32_t open_access_point() {
    begin_wifi_configuration();
    {
        gw_cntl_t &gateway = the_gateway().shared;
        const platform::held_mutex guard(gateway.field_mutex);
        gateway.nw_cfg_stat = configuring_by_access_point;
    }
    return listen_for_credentials();
}

void open_access_points() {
    if (kelo_hal_mutex_create_init(&access_point_mutex) != 0) {
        throw refused("no mutex could be created");
    }
    is_joining = false;
    access_points_end = false;
    has_listened = false;
}

void close_access_points() {
    thrd_handle_t ended = nullptr;
    {
        const platform::held_mutex guard(access_point_mutex);
        access_points_end = true;
        ended = std::exchange(joining, nullptr);
    }
    DeleteThrdHandle(ended);
    stop_listening();
    kelo_hal_mutex_release(std::exchange(access_point_mutex, nullptr));
}

} // namespace gateway
