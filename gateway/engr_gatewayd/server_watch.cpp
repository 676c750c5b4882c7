#include "server_watch.h"

#include "linux_port/port.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <utility>

namespace gatewayd {
namespace {

constexpr uint16_t server_port = 6668;

options watched;
std::string ready_text;
std::atomic<bool> listening;
std::atomic<bool> was_ready;
std::atomic<bool> has_complained;
std::atomic<bool> has_ended;

std::string shown_address() {
    const std::string address = served_address(watched);
    return fmt::format("{} ({})", watched.interface, address.empty() ? "no address" : address);
}

void complain(int error) {
    if (error == EADDRINUSE && !watched.waits_for_address && !was_ready) {
        if (!has_ended.exchange(true)) {
            kill(getpid(), SIGTERM);
        }
        return;
    }
    if (!has_complained.exchange(true)) {
        const std::string reason = error == EADDRINUSE
                                       ? "is taken by another program"
                                       : fmt::format("cannot be had: {}", std::strerror(error));
        std::fprintf(stderr, "engr_gatewayd: tcp %d on %s %s; retrying\n", server_port,
                     shown_address().c_str(), reason.c_str());
    }
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

void watch_server(const options &chosen, std::string gateway) {
    watched = chosen;
    ready_text = std::move(gateway);
    linux_port::set_server_observer(on_server_event);
}

void say_ready(const std::string &service) {
    std::printf("ready: %s on %s, %s\n", service.c_str(), shown_address().c_str(),
                ready_text.c_str());
    std::fflush(stdout);
}

bool server_is_listening() {
    return listening;
}

std::string server_fault() {
    return !has_ended ? ""
                      : fmt::format("tcp {} on {} is taken by another program, perhaps another "
                                    "gateway; end that, serve another address with --address, or "
                                    "wait for it with --wait-for-address",
                                    server_port, shown_address());
}

} // namespace gatewayd
