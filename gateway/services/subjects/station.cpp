#include "subjects/station.h"

#include "calls/activity.h"
#include "calls/calls.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/clock.h"
#include "platform/owners.h"
#include "platform/thread.h"
#include "platform/wifi.h"
#include "store/records.h"
#include "subjects/installer.h"
#include "subjects/network.h"

#include <fmt/format.h>

#include <utility>

namespace gateway {
namespace {

constexpr thrd_param_t connect_thread{64 * 1024, 2, "wifi_connect"};
/** Delay between a reported failure and the return of the access point; the station goes on trying.
 */
constexpr uint32_t station_time_ms = 5000;
constexpr uint32_t configuring_by_access_point = 1;

kelo_mutex_t station_mutex; // guards what follows
thrd_handle_t connector;    // the thread that connects
bool is_connecting;         // until the last step of that thread
bool is_station_closed;
bool has_listened;

bool shall_go_on() {
    const platform::held_mutex guard(station_mutex);
    return !is_station_closed;
}

void end_connecting() {
    const platform::held_mutex guard(station_mutex);
    is_connecting = false;
}

/** Ends the listener, if there is one; waits for finish_cb. */
void stop_listening() {
    bool listens = false;
    {
        const platform::held_mutex guard(station_mutex);
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
 * Connects the station with the credentials in the record.
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

/**
 * Ends the Wi-Fi layer's configuration if the station has a network.
 *
 * @return whether it has one
 */
bool end_wifi_configuration() {
    const locked_network now;
    now->wifi_config_needed = now->wifi_ssid.empty();
    return !now->wifi_config_needed;
}

/** Ends the configuration when the station has its network, else brings the access point back. */
void finish_configuration() {
    if (end_wifi_configuration()) {
        stop_listening();
        guarded([] {
            change_gateway_fields({{&need_field(gateway_fields(), "nw_cfg_stat"), int64_t{0}}});
        });
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
        GATEWAY_LOG(LOG_LEVEL_FAILURE, "cannot listen for credentials, will try again: result %d",
                    result);
    }
}

/** Body of the thread that connects. The access point stays until the station has its network,
 * since a failure is reported to the apps there. */
void connect_to_network(void *) {
    const int32_t result = connect_as_recorded();
    if (result == 0) {
        tell_event("the gateway has joined its Wi-Fi network");
        wf_ap_stop();
    } else {
        tell_event(fmt::format("the gateway could not join its Wi-Fi network: result {}", result));
        engr_lan_ap_nw_cfg_error_report("the Wi-Fi network cannot be joined", result);
    }
    finish_configuration();
    end_connecting();
}

/**
 * Claims the station for one attempt to connect.
 *
 * @return the thread of the last attempt, which has ended
 * @throws refused
 */
thrd_handle_t claim_station() {
    const platform::held_mutex guard(station_mutex);
    if (is_connecting || is_station_closed) {
        throw refused("a Wi-Fi network is being joined already");
    }
    is_connecting = true;
    return std::exchange(connector, nullptr);
}

/**
 * Starts the thread that connects.
 *
 * @return whether it runs
 */
bool start_connecting() {
    const platform::held_mutex guard(station_mutex);
    return !is_station_closed && CreateAndStart(&connector, nullptr, nullptr, connect_to_network,
                                                nullptr, &connect_thread) == 0;
}

/**
 * Stores the credentials.
 *
 * @throws refused, usage_error
 */
void take_credentials(const char *ssid, const char *passwd, const char *token) {
    DeleteThrdHandle(claim_station());
    try {
        store_wifi(ssid, passwd == nullptr ? "" : passwd, token);
    } catch (...) {
        end_connecting();
        throw;
    }
}

int on_credentials(const char *ssid, const char *passwd, const char *token) {
    bool is_taken = false;
    int32_t result = guarded_service(
        call("finish_cb"),
        {{"ssid", ssid}, {"passwd", secret_text{passwd}}, {"token", secret_text{token}}}, [&] {
            take_credentials(ssid, passwd, token);
            is_taken = true;
            tell_deed(fmt::format("sent the credentials of Wi-Fi network {}", ssid));
        });
    // Started here, so that finish_cb stands in the trace before wf_station_connect.
    if (is_taken && !start_connecting()) {
        GATEWAY_LOG(LOG_LEVEL_FAILURE, "the Wi-Fi network cannot be joined: no thread");
        end_connecting();
        result = result_failed;
    }
    return result;
}

} // namespace

int32_t listen_for_credentials() {
    {
        const platform::held_mutex guard(station_mutex);
        has_listened = true;
    }
    return engr_lan_ap_nw_cfg_start(callback_unless_absent(call("finish_cb"), on_credentials));
}

int32_t open_access_point() {
    {
        const locked_network now;
        now->wifi_mode = WF_WORK_MODE_ACCESS_POINT;
        now->wifi_config_needed = true;
        now->wifi_ssid.clear(); // the station has no network, and needs one
    }
    {
        gw_cntl_t &gateway = the_gateway().shared;
        const platform::held_mutex guard(gateway.field_mutex);
        gateway.nw_cfg_stat = configuring_by_access_point;
    }
    return listen_for_credentials();
}

void station_init() {
    make_mutex(station_mutex);
    is_connecting = false;
    is_station_closed = false;
    has_listened = false;
}

void station_shutdown() {
    thrd_handle_t ended = nullptr;
    {
        const platform::held_mutex guard(station_mutex);
        is_station_closed = true;
        ended = std::exchange(connector, nullptr);
    }
    DeleteThrdHandle(ended);
    stop_listening();
    kelo_hal_mutex_release(std::exchange(station_mutex, nullptr));
}

} // namespace gateway
