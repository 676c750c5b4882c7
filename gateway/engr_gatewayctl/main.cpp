// engr_gatewayctl: sends one request to a running gateway and prints the reply.
#include "data_dir.h"
#include "running_gateways.h"
#include "support/completion.h"
#include "support/help_text.h"
#include "support/manual_page.h"
#include "support/terminal.h"
#include "verbs.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string_view>
#include <vector>

namespace {

using nlohmann::ordered_json;

constexpr int exit_failed = 1;
constexpr int exit_usage = 2;

std::string help_footer() {
    const std::size_t columns = support::help_columns();
    std::string text = "Verbs:\n";
    for (const control::verb &of : control::verbs) {
        text += support::help_entry(fmt::format("{} {}", of.name, of.arguments), of.help, columns);
    }
    return text + "\nExit status: 0 done; 1 the gateway refused, is silent or does not run; 2 "
                  "wrong usage.";
}

int complain(const std::string &message, int status) {
    std::cerr << "engr_gatewayctl: " << control::terminal_text(message) << '\n';
    return status;
}

/** Makes a system call again that failed because the process was stopped and goes on: a call with a
 * time limit does. */
template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

/** Connects to the socket in the working directory: -1 with errno. Sends and receives end with
 * EAGAIN after a time. */
int connect_to_daemon(int wait_s) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string_view(control::socket_name).copy(address.sun_path, sizeof address.sun_path - 1);
    const timeval timeout{.tv_sec = wait_s, .tv_usec = 0};
    const auto connect_it = [&] {
        return connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    };
    if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) != 0 ||
        uninterrupted(connect_it) != 0) {
        return -1;
    }
    return fd;
}

/**
 * Sends a line and reads one.
 *
 * @return empty when the daemon went away, or kept silent, then with EAGAIN in errno
 */
std::string ask_daemon(int fd, const std::string &line) {
    for (std::size_t sent = 0; sent < line.size();) {
        const ssize_t count = uninterrupted(
            [&] { return send(fd, line.data() + sent, line.size() - sent, MSG_NOSIGNAL); });
        if (count <= 0) {
            break; // a request that is too long is answered before it is read whole
        }
        sent += static_cast<std::size_t>(count);
    }
    std::string reply;
    char part[4096];
    while (reply.empty() || reply.back() != '\n') {
        const ssize_t count = uninterrupted([&] { return recv(fd, part, sizeof part, 0); });
        if (count <= 0) {
            errno = count == 0 ? 0 : errno;
            return {};
        }
        reply.append(part, static_cast<std::size_t>(count));
    }
    return reply;
}

/** Columns of the terminal that is standard output; 0 when it is none. */
std::size_t terminal_columns() {
    const bool is_terminal = isatty(STDOUT_FILENO) != 0;
    return is_terminal ? support::terminal_columns(STDOUT_FILENO).value_or(80) : 0;
}

/** Prints devices as a table whose lines are cut at a number of columns. */
void show_devices(const ordered_json &devices, std::size_t columns) {
    std::vector<std::array<std::string, 5>> rows{
        {"ID", "PRODUCT", "VERSION", "STATE", "DATA POINTS"}};
    for (const ordered_json &each : devices) {
        const auto text = [&](const char *name) {
            return control::terminal_text(each.value(name, ""));
        };
        rows.push_back({text("dev_id"), text("pid"), text("sw_ver"),
                        each.value("online", 0) == 1 ? "online" : "offline",
                        each.value("dps", ordered_json()).dump(-1, ' ', true)});
    }
    std::array<std::size_t, 4> widths{};
    for (const auto &row : rows) {
        for (std::size_t i = 0; i < widths.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    for (const auto &row : rows) {
        std::string line;
        for (std::size_t i = 0; i < widths.size(); ++i) {
            line += fmt::format("{:<{}}  ", row[i], widths[i]);
        }
        line += row.back();
        if (line.size() > columns) {
            line.replace(std::max<std::size_t>(columns, 3) - 3, std::string::npos, "...");
        }
        std::cout << line << '\n';
    }
}

/** Prints the result in an answer of the daemon, or its complaint. */
int show(const std::string &line, bool is_table) {
    const ordered_json reply = ordered_json::parse(line, nullptr, false);
    if (reply.is_object() && reply.contains("result")) {
        const ordered_json &result = reply["result"];
        const std::size_t columns = terminal_columns();
        if (is_table && columns != 0) {
            show_devices(result, columns);
        } else {
            std::cout << control::shown_result(result, columns != 0) << '\n';
        }
        std::cout << std::flush;
        return std::cout ? 0 : complain("the answer could not be written", exit_failed);
    }
    if (!reply.is_object() || !reply.contains("error")) {
        return complain("the gateway gave no answer", exit_failed);
    }
    return complain(reply["error"].get<std::string>(),
                    reply.value("usage", false) ? exit_usage : exit_failed);
}

std::string silence(const std::string &data_dir, int wait_s) {
    return fmt::format("the gateway on '{}' has not answered for {} s: it is stopped or busy; "
                       "--timeout waits longer",
                       data_dir, wait_s);
}

constexpr const char *start_advice = "; start one with: engr_gatewayd --data-dir DIR";

/** Where a gateway is reached. */
struct control_place {
    std::string data_dir; // by name
    int fd = -1;          // connected, or the error is told
    std::string error{};
};

control_place connect_to_directory(const std::string &data_dir, int wait_s) {
    control_place place{data_dir};
    try {
        control::enter_directory(data_dir, false);
    } catch (const control::directory_error &error) {
        place.error = std::string(error.what()) + start_advice;
        return place;
    }
    place.fd = connect_to_daemon(wait_s);
    if (place.fd < 0) {
        place.error =
            errno == EACCES   ? fmt::format("the gateway on '{}' belongs to another user", data_dir)
            : errno == EAGAIN ? silence(data_dir, wait_s)
                              : fmt::format("no gateway runs on '{}'{}", data_dir, start_advice);
    }
    return place;
}

/** The gateway on the usual directory, else the only one that runs. */
control_place connect_to_any(const std::string &usual_dir, int wait_s) {
    control_place place = connect_to_directory(usual_dir, wait_s);
    const std::vector<control::running_gateway> running = control::running_gateways();
    if (place.fd >= 0 || running.empty()) {
        return place;
    }
    if (running.size() > 1) {
        place.error = "several gateways run; name one with --data-dir:";
        for (const control::running_gateway &one : running) {
            place.error += " " + one.data_dir;
        }
        return place;
    }
    place = connect_to_directory(running.front().entrance, wait_s);
    place.data_dir = running.front().data_dir;
    return place;
}

/**
 * Carries out a verb.
 *
 * @param data_dir  empty: no directory was named
 * @param wait_s    longest wait for the answer; 0: the verb's own
 */
int ask(const std::string &data_dir, const control::request &asked, int wait_s) {
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
    wait_s = wait_s != 0 ? wait_s : control::find_verb(asked.verb)->wait_s;
    const control_place place = data_dir.empty()
                                    ? connect_to_any(control::default_data_dir(), wait_s)
                                    : connect_to_directory(data_dir, wait_s);
    if (place.fd < 0) {
        return complain(place.error, exit_failed);
    }
    const std::string reply = ask_daemon(place.fd, line);
    const bool is_silent = reply.empty() && errno == EAGAIN;
    close(place.fd);
    return is_silent ? complain(silence(place.data_dir, wait_s), exit_failed)
                     : show(reply, asked.verb == "devices" && asked.arguments.empty());
}

/** Declares a verb's arguments as its help shows them, as in "ID [PID]" or "up|down". */
void declare_arguments(CLI::App &verb, const std::string &shown) {
    std::istringstream words(shown);
    for (std::string word; words >> word;) {
        const bool is_optional = word.front() == '[' || word.back() == ']';
        std::erase_if(word, [](char one) { return one == '[' || one == ']'; });
        const bool is_list = word.ends_with("...");
        word.resize(word.size() - (is_list ? 3 : 0));
        if (word.starts_with("--")) {
            verb.add_flag(word);
        } else if (verb.get_option_no_throw(word) == nullptr) {
            CLI::Option *argument = verb.add_option(word)->required(!is_optional);
            if (is_list) {
                argument->expected(-1);
            }
        }
    }
}

/** Answers a shell that completes the command line, and the build that makes the manual page: for
 * these the verbs are declared, which the parser leaves alone. */
bool answer_about_options(CLI::App &app, int count, char **arguments) {
    if (count < 2 || std::string_view(arguments[1]).substr(0, 2) != "__") {
        return false;
    }
    app.name("engr_gatewayctl");
    for (const control::verb &of : control::verbs) {
        CLI::App *verb = app.add_subcommand(std::string(of.name), of.help);
        verb->set_help_flag();
        declare_arguments(*verb, of.arguments);
    }
    return support::answer_completion_request(app, count, arguments, {}) ||
           support::answer_manual_page_request(app, "operate a running reference gateway", count,
                                               arguments);
}

} // namespace

int main(int count, char **arguments) {
    CLI::App app(
        "Operates the gateway that runs on a data directory, and prints its answer as JSON.");
    int wait_s = 0;
    std::string data_dir;
    app.set_version_flag("--version", "engr_gatewayctl " ENGR_VERSION);
    app.add_option("--data-dir", data_dir,
                   fmt::format("Data directory of the gateway (default: {}; when no gateway runs "
                               "there, that of the only one that runs)",
                               control::default_data_dir_help))
        ->type_name("DIR");
    app.add_option("--timeout", wait_s,
                   fmt::format("Longest wait for the answer (default: 5; {} for upgrade and call)",
                               control::long_wait_s))
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 3600));
    if (answer_about_options(app, count, arguments)) {
        return 0;
    }
    support::set_program_help(app, "engr_gatewayctl [OPTIONS] VERB [ARGUMENT...]");
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
    return ask(data_dir, {words.front(), {words.begin() + 1, words.end()}}, wait_s);
}
