// engr_gatewayctl: sends one request to a running gateway and prints the reply.
#include "data_dir.h"
#include "verbs.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string_view>

namespace {

using nlohmann::ordered_json;

constexpr int exit_failed = 1;
constexpr int exit_usage = 2;
/** Longer than any call of the agent, which may wait for slow apps. */
constexpr time_t reply_timeout_s = 60;

std::string help_footer() {
    std::string text = "Verbs:\n";
    for (const control::verb &of : control::verbs) {
        text += fmt::format("{:<39} {}\n", fmt::format("  {} {}", of.name, of.arguments), of.help);
    }
    return text + "\nExit status: 0 done; 1 the gateway refused or none runs on the directory; 2 "
                  "wrong usage.";
}

int complain(const std::string &message, int status) {
    std::cerr << "engr_gatewayctl: " << message << '\n';
    return status;
}

/** Connects to the socket in the working directory: -1 with errno. */
int connect_to_daemon() {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string_view(control::socket_name).copy(address.sun_path, sizeof address.sun_path - 1);
    const timeval timeout{.tv_sec = reply_timeout_s, .tv_usec = 0};
    if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0 ||
        connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        return -1;
    }
    return fd;
}

/**
 * Sends a line and reads one.
 *
 * @return empty when the daemon went away or kept silent
 */
std::string ask_daemon(int fd, const std::string &line) {
    for (std::size_t sent = 0; sent < line.size();) {
        const ssize_t count = send(fd, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            break; // a request that is too long is answered before it is read whole
        }
        sent += static_cast<std::size_t>(count);
    }
    std::string reply;
    char part[4096];
    while (reply.empty() || reply.back() != '\n') {
        const ssize_t count = recv(fd, part, sizeof part, 0);
        if (count <= 0) {
            return {};
        }
        reply.append(part, static_cast<std::size_t>(count));
    }
    return reply;
}

int show(const std::string &line) {
    const ordered_json reply = ordered_json::parse(line, nullptr, false);
    if (reply.is_object() && reply.contains("result")) {
        const bool is_wide = reply["result"].size() > 1;
        std::cout << reply["result"].dump(is_wide ? 2 : -1) << '\n' << std::flush;
        return std::cout ? 0 : complain("the answer could not be written", exit_failed);
    }
    if (!reply.is_object() || !reply.contains("error")) {
        return complain("the gateway gave no answer", exit_failed);
    }
    return complain(reply["error"].get<std::string>(),
                    reply.value("usage", false) ? exit_usage : exit_failed);
}

int ask(const std::string &data_dir, const control::request &asked) {
    if (const std::string fault = control::usage_fault(asked.verb, asked.arguments.size());
        !fault.empty()) {
        return complain(fault, exit_usage);
    }
    std::string line;
    try {
        line = control::request_line(asked);
    } catch (const nlohmann::json::exception &) {
        return complain("an argument is not valid UTF-8", exit_usage);
    }
    const std::string advice = "; start one with: engr_gatewayd --data-dir DIR";
    try {
        control::enter_directory(data_dir, false);
    } catch (const control::directory_error &error) {
        return complain(error.what() + advice, exit_failed);
    }
    const int fd = connect_to_daemon();
    if (fd < 0 && errno == EACCES) {
        return complain(fmt::format("the gateway on '{}' belongs to another user", data_dir),
                        exit_failed);
    }
    if (fd < 0) {
        return complain(fmt::format("no gateway runs on '{}'{}", data_dir, advice), exit_failed);
    }
    const std::string reply = ask_daemon(fd, line);
    close(fd);
    return show(reply);
}

} // namespace

int main(int count, char **arguments) {
    CLI::App app(
        "engr_gatewayctl [--data-dir DIR] VERB [ARGUMENT...]\n"
        "Operates the gateway that runs on a data directory, and prints its answer as JSON.");
    std::string data_dir = control::default_data_dir();
    app.set_version_flag("--version", "engr_gatewayctl " ENGR_VERSION);
    app.add_option("--data-dir", data_dir,
                   fmt::format("Data directory of the gateway (default: {})",
                               control::default_data_dir_help))
        ->type_name("DIR");
    app.footer(help_footer());
    app.prefix_command(); // arguments of the verb may begin with a minus
    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : exit_usage;
    }
    const std::vector<std::string> words = app.remaining();
    if (words.empty()) {
        return complain("a verb is missing; see engr_gatewayctl --help", exit_usage);
    }
    return ask(data_dir, {words.front(), {words.begin() + 1, words.end()}});
}
