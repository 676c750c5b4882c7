#include "server_watch.h"

#include "linux_port/port.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace gatewayd {
namespace {

constexpr uint16_t server_port = 6668;

std::string interface_name;
std::string fixed_address;
std::atomic<bool> listening;
std::atomic<bool> was_ready;
std::atomic<bool> has_complained;

std::string shown_address() {
    return fixed_address.empty()
               ? linux_port::interface_address(interface_name).value_or("no address")
               : fixed_address;
}

void complain(int error) {
    if (has_complained.exchange(true)) {
        return;
    }
    const char *reason = error == EADDRINUSE ? "is taken by another program" : std::strerror(error);
    std::fprintf(stderr, "engr_gatewayd: tcp %d on %s (%s) %s%s; trying on\n", server_port,
                 interface_name.c_str(), shown_address().c_str(),
                 error == EADDRINUSE ? "" : "cannot be had: ", reason);
}

void on_server_event(linux_port::server_event event, uint16_t port, int error) {
    if (port != server_port) {
        return;
    }
    listening = event == linux_port::server_event::listening;
    if (event == linux_port::server_event::failed) {
        complain(error);
    } else if (listening) {
        has_complained = false;
        if (!was_ready.exchange(true)) {
            say_ready("tcp " + std::to_string(server_port));
        }
    }
}

} // namespace

void watch_server(const std::string &interface, const std::string &address) {
    interface_name = interface;
    fixed_address = address;
    linux_port::set_server_observer(on_server_event);
}

void say_ready(const std::string &service) {
    std::printf("ready: %s on %s (%s)\n", service.c_str(), interface_name.c_str(),
                shown_address().c_str());
    std::fflush(stdout);
}

bool server_is_listening() {
    return listening;
}

} // namespace gatewayd
