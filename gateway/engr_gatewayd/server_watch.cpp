#include "server_watch.h"

#include "activity_output.h"
#include "linux_port/port.h"
#include "service_manager.h"

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
std::string console_address;
std::atomic<bool> is_listening;
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
        const std::string message =
            fmt::format("tcp {} on {} {}; retrying", server_port, shown_address(), reason);
        std::fprintf(stderr, "engr_gatewayd: %s\n", message.c_str());
        notify_service_manager("STATUS=" + message);
    }
}

void on_server_event(const linux_port::server_notice &notice) {
    using enum linux_port::server_event;
    if (notice.port != server_port) {
        return;
    }
    if (notice.event == connected || notice.event == disconnected) {
        show_activity(fmt::format("{} {}", notice.peer,
                                  notice.event == connected ? "connected" : "disconnected"));
        return;
    }
    is_listening = notice.event == listening;
    if (notice.event == failed) {
        complain(notice.error);
    } else if (is_listening) {
        has_complained = false;
        if (!was_ready.exchange(true)) {
            say_ready("tcp " + std::to_string(server_port));
        }
    }
}

} // namespace

void watch_server(const options &chosen, std::string gateway, std::string console) {
    watched = chosen;
    ready_text = std::move(gateway);
    console_address = std::move(console);
    linux_port::set_server_observer(on_server_event);
}

void say_ready(const std::string &service) {
    std::printf("ready: %s on %s, %s%s%s\n", service.c_str(), shown_address().c_str(),
                ready_text.c_str(), console_address.empty() ? "" : ", console ",
                console_address.c_str());
    std::fflush(stdout);
    notify_service_manager("READY=1\nSTATUS=" + service + " on " + shown_address() + ", " +
                           ready_text);
}

bool server_is_listening() {
    return is_listening;
}

std::string server_fault() {
    return !has_ended ? ""
                      : fmt::format("tcp {} on {} is taken by another program, perhaps another "
                                    "gateway; end that, serve another address with --address, or "
                                    "wait for it with --wait-for-address",
                                    server_port, shown_address());
}

} // namespace gatewayd
