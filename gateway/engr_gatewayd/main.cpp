// engr_gatewayd: hosts the agent and the reference services on the Linux port.
#include "activity_output.h"
#include "agent_run.h"
#include "console_output.h"
#include "control_server.h"
#include "data_dir.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"
#include "gateway_services/host.h"
#include "gateway_services/operate.h"
#include "happenings.h"
#include "input_files.h"
#include "linux_port/port.h"
#include "log_output.h"
#include "options.h"
#include "recording.h"
#include "server_watch.h"
#include "service_manager.h"
#include "verb_handlers.h"
#include "verbs.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <nlohmann/json.hpp>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace gatewayd {
namespace {

constexpr const char *store_name = "gateway.db";
constexpr int usual_log_level = 2;
/** Files that are opened by libraries, which would follow a link and wait for a pipe. */
constexpr const char *own_files[] = {control::lock_name, store_name, "gateway.db-wal",
                                     "gateway.db-journal", log_file_name};

/** Signals that end the daemon; blocked on every thread, so that only sigwait sees them. */
sigset_t block_signals() {
    sigset_t stopping;
    sigemptyset(&stopping);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&stopping, number);
    }
    pthread_sigmask(SIG_BLOCK, &stopping, nullptr);
    // A closed peer and a file size limit are errors of a write, not the end of the process.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    return stopping;
}

/** Refuses a data directory, the working directory by now, in which another user may put links and
 * pipes in the place of the gateway's files. */
void check_directory(const std::string &data_dir) {
    struct stat status {};
    if (stat(".", &status) != 0) {
        throw std::runtime_error(
            fmt::format("cannot use the data directory '{}': {}", data_dir, std::strerror(errno)));
    }
    if (status.st_uid != geteuid()) {
        throw std::runtime_error(fmt::format(
            "the data directory '{}' belongs to user {}; choose one of your own with --data-dir",
            data_dir, status.st_uid));
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw std::runtime_error(
            fmt::format("other users may write in the data directory '{0}'; keep "
                        "them out with: chmod go-w '{0}'",
                        data_dir));
    }
    for (const char *name : own_files) {
        if (lstat(name, &status) == 0 && !S_ISREG(status.st_mode)) {
            throw std::runtime_error(
                fmt::format("{} in the data directory '{}' is not a regular file", name, data_dir));
        }
    }
}

/** Locks the data directory until the process ends. */
void lock_directory(const std::string &data_dir) {
    const int fd = open(control::lock_name, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        throw std::runtime_error(fmt::format("cannot write in the data directory '{}': {}",
                                             data_dir, std::strerror(errno)));
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        throw std::runtime_error(
            fmt::format("another engr_gatewayd runs on the data directory '{}'", data_dir));
    }
}

/** The open gateway; its end stops agent, services and port in that order. */
class running_gateway {
  public:
    running_gateway(const options &chosen, input_files &inputs) {
        gateway::open_options options;
        options.store_path = store_name;
        options.initial_site = std::move(inputs.site);
        options.faults = std::move(inputs.scenario);
        options.newest_log = newest_log;
        options.activity = [](std::string_view sentence) {
            show_activity(sentence);
            tell_happening(sentence);
        };
        options.asking_app = linux_port::last_sender;
        options.address = [chosen] { return served_address(chosen); };
        if (const auto trace = inputs.trace) {
            trace->begin();
            options.trace = [trace](std::string_view line) { trace->write(line); };
            options.trace_soon = [trace](std::string_view line) { trace->write_soon(line); };
        }
        if (inputs.record) {
            listen_for_recording(inputs.record);
        }
        if (chosen.console) {
            listen_for_console();
        }
        if (happenings_are_observed()) {
            options.call = tell_call;
        }
        gateway::open(std::move(options));
        if (inputs.record) {
            begin_recording(*inputs.record, chosen, inputs.scenario_text);
        }
        begin_happenings();
        malloc_trim(0); // a large site has left much behind
    }
    running_gateway(const running_gateway &) = delete;
    running_gateway &operator=(const running_gateway &) = delete;
    ~running_gateway() {
        stop_agent();
        end_happenings();
        gateway::close();
        linux_port::shutdown();
    }
};

void configure_network(const options &chosen) {
    // On lo the interface's own address leaves the others to other gateways; elsewhere a fixed one
    // would outlive a change of address.
    std::string any_address = chosen.address;
    if (any_address.empty() && chosen.interface == "lo") {
        any_address = linux_port::interface_address(chosen.interface).value_or("");
    }
    if (!linux_port::configure_network(
            {.interface = chosen.interface, .any_address = any_address})) {
        throw std::runtime_error("the network cannot be set up");
    }
}

/** The gateway's id, its devices and its directory, for the ready line. */
std::string described_gateway(const std::string &data_dir) {
    const nlohmann::ordered_json now = gateway::status();
    const std::string id = now["gateway"]["gw_id"];
    const int devices = now["devices"];
    return fmt::format("gateway {} with {} device{}, data in {}",
                       id.empty() ? now["gateway"]["alt_gw_id"].get<std::string>() : id, devices,
                       devices == 1 ? "" : "s", control::terminal_text(data_dir));
}

void run(const options &chosen, input_files &inputs) {
    const sigset_t stopping = block_signals();
    // The gateway's own files are created private. Files of the agent get the permissions that it
    // asks for.
    umask(022);
    control::enter_directory(chosen.data_dir, true);
    check_directory(chosen.data_dir);
    lock_directory(chosen.data_dir);
    open_log(chosen.log_level.value_or(usual_log_level), chosen.log_level.has_value());
    set_activity_shown(!chosen.is_quiet);
    configure_network(chosen);
    const running_gateway gateway(chosen, inputs);
    if (!chosen.site.empty() && !gateway::used_initial_site()) {
        std::fprintf(stderr,
                     "engr_gatewayd: '%s' is not used: the data directory has a gateway already\n",
                     chosen.site.c_str());
    }
    console_output console(chosen);
    watch_server(chosen, described_gateway(chosen.data_dir), console.page_address());
    console.begin();
    const control_server control(answer_request);
    if (const int32_t result = chosen.access_point ? gateway::open_access_point() : 0;
        result != 0) {
        throw std::runtime_error(fmt::format(
            "nothing listens for Wi-Fi credentials on UDP port 6669: result {}", result));
    }
    if (const int32_t result = start_agent(chosen.mode); result != 0) {
        throw std::runtime_error(fmt::format("the agent does not start: result {}", result));
    }
    if (chosen.mode == ENGR_MODE_WECHAT) {
        say_ready("wechat");
    }
    int signal_number = 0;
    sigwait(&stopping, &signal_number);
    notify_service_manager("STOPPING=1");
    if (const std::string fault = server_fault(); !fault.empty()) {
        throw std::runtime_error(fault);
    }
}

} // namespace
} // namespace gatewayd

int main(int count, char **arguments) {
    using namespace gatewayd;
    const parsed_options parsed = parse_options(count, arguments);
    if (parsed.ends) {
        return parsed.status;
    }
    try {
        input_files inputs = read_input_files(parsed.chosen);
        run(parsed.chosen, inputs);
        close_log();
        return 0;
    } catch (const gateway::usage_error &error) {
        std::fprintf(stderr, "engr_gatewayd: %s\n", error.what());
        return exit_usage;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "engr_gatewayd: %s\n", error.what());
        return exit_failed;
    }
}
