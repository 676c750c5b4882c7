// A verb of engr_app, chosen by the first byte, with a gateway that does what the rest says
// (support/hostile_gateway.h). A line that begins with @ is the text of its announcement.
//
// Every run ends, and every failure is one that is foreseen. Nothing that a gateway says reaches
// the terminal unescaped, and a JSON document is UTF-8 in one piece. A password and a token are
// sent once, encrypted, and never shown.
#include "base/failure.h"
#include "gateway/link_address.h"
#include "gateway/session.h"
#include "lan_client/frame_types.h"
#include "support/gateway_frame.h"
#include "support/hostile_gateway.h"
#include "support/input_error.h"
#include "support/require.h"
#include "support/utf8.h"
#include "terminal/screen.h"
#include "verbs/verb.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

namespace {

using fuzz::require;

constexpr std::string_view secret = "correct-horse-battery";
const std::string image_file = std::filesystem::temp_directory_path() / "engr_fuzz_image.bin";

constexpr const char *command_lines[] = {
    "info --versions",
    "devices --versions",
    "watch --for 100",
    "dp get a1",
    "dp set a1 1=true",
    "dp query a1 1",
    "channel get",
    "channel set 20",
    "group add g a1 b2",
    "group set g 1=true",
    "linkage run s",
    "scene run g s",
    "unbind a1 b2",
    "token set correct-horse-battery",
    "wifi net --password correct-horse-battery",
    "join open --seconds 100",
    "config pull app",
    "log",
    "log --sanitized",
    "upgrade IMAGE --version 2",
    "upgrade IMAGE --version 2 --cid a1",
    "deactivate --yes",
    "site report --data-points --versions",
    "ping -c 2 -i 0.1",
    "raw 241",
    "discover",
};

/** A command line and what it does. */
struct command {
    CLI::App parser;
    engr_app::verb_work work;
};

std::unique_ptr<command> parse(std::string line) {
    if (const size_t at = line.find("IMAGE"); at != std::string::npos) {
        line.replace(at, 5, image_file);
    }
    auto parsed = std::make_unique<command>();
    // Some verbs look whether these were given.
    parsed->parser.add_flag("--all");
    parsed->parser.add_option("--gateway");
    for (const engr_app::verb &one : engr_app::verbs()) {
        engr_app::add_verb(parsed->parser, one);
    }
    parsed->parser.parse(line);
    parsed->work = engr_app::verb_named_in(parsed->parser).work;
    return parsed;
}

const std::vector<std::unique_ptr<command>> &commands() {
    static const auto all = [] {
        std::vector<std::unique_ptr<command>> parsed;
        for (const char *line : command_lines) {
            parsed.push_back(parse(line));
        }
        return parsed;
    }();
    return all;
}

void check_shown(std::string_view lines) {
    require(lines.find(secret) == std::string_view::npos, "no secret to be shown");
    for (std::string_view left = lines; !left.empty();) {
        const support::code_point next = support::first_code_point(left);
        require(next.is_valid &&
                    (next.value == '\n' || next.value == '\t' || support::is_visible(next.value)),
                "only what is visible to be shown");
        left.remove_prefix(next.bytes);
    }
}

std::string documents;

std::string announcement(std::string_view &script) {
    std::string_view text =
        R"({"ip":"127.0.0.1","gwId":"gw1","active":0,"productKey":"p","version":"3.3"})";
    if (script.starts_with('@')) {
        const size_t end = std::min(script.find('\n'), script.size());
        text = script.substr(1, end - 1);
        script.remove_prefix(std::min(end + 1, script.size()));
    }
    return fuzz::gateway_frame(0, lan_client::frame_type::udp_discovery, {0},
                               lan_client::encrypt(lan_client::discovery_key(), text));
}

void run(const engr_app::verb_work &work, const engr_app::global_options &options,
         engr_app::screen &shown_on) {
    engr_app::console out(shown_on, options.json, false);
    engr_app::gateway_session session(options, out, nullptr);
    try {
        const int exit_code = work(session);
        const auto is_it = [exit_code](const auto &one) { return one.status == exit_code; };
        require(std::ranges::any_of(engr_app::exit_statuses(), is_it), "one of the exit statuses");
    } catch (const engr_app::failure &failed) {
        out.problem(failed.kind(), failed.what());
    } catch (const support::input_error &error) {
        out.problem("usage", error.what());
    }
    session.leave();
}

} // namespace

namespace engr_app {

// In the place of the machine's tables of neighbours and sockets: they differ from run to run, and
// to read them takes longer than everything else.
std::string link_address_of(const std::string &, uint16_t) {
    return "socket 4711";
}

// In the place of the screen on the terminal.
screen::screen(bool quiet)
    : quiet_(quiet), output_is_terminal_(true), messages_are_terminal_(true), columns_(100) {}

void screen::output(std::string_view lines) {
    check_shown(lines);
    documents += lines;
}

void screen::message(std::string_view lines) {
    check_shown(lines);
}

void screen::add(std::shared_ptr<bar_state> bar) {
    check_shown(bar_line(bar->figures, columns_));
}

void screen::update(bar_state &bar, uint64_t done, uint64_t total) {
    bar.figures.done = done;
    bar.figures.total = total;
    check_shown(bar_line(bar.figures, columns_));
}

void screen::wait(bar_state &bar, const std::string &what) {
    bar.figures.waits_for = what;
    check_shown(bar_line(bar.figures, columns_));
}

void screen::finish(const std::shared_ptr<bar_state> &) {}

} // namespace engr_app

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    std::ofstream(image_file) << std::string(3000, 'i');
    for (const char *name : {"XDG_CACHE_HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME"}) {
        setenv(name, "/dev/null", 1); // no directory, so that nothing is read or written
    }
    return setenv("NO_COLOR", "1", 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string_view script(reinterpret_cast<const char *>(data), size);
    if (size == 0 || script.find(secret) != std::string_view::npos) {
        return 0;
    }
    script.remove_prefix(1);
    engr_app::global_options options;
    options.gateways = {fuzz::datagram_sender};
    options.json = data[0] >= 0x80;
    fuzz::the_far_side().datagram = announcement(script);
    fuzz::hostile_gateway gateway(script, lan_client::unactivated_key(), true);
    int secrets_sent = 0;
    gateway.on_request = [&](const fuzz::seen_request &request) {
        const auto plain =
            lan_client::decrypt(lan_client::unactivated_key(), request.payload).value_or("");
        secrets_sent += plain.find(secret) != std::string::npos ? 1 : 0;
        require(request.payload.find(secret) == std::string::npos, "secrets to be encrypted");
    };
    documents.clear();
    engr_app::screen shown_on;
    run(commands()[data[0] % 0x80 % std::size(command_lines)]->work, options, shown_on);
    require(secrets_sent <= 1, "a secret to be sent once");
    if (options.json) {
        // One document, or one line a report.
        std::istringstream lines(documents);
        nlohmann::json all = nlohmann::json::parse(documents, nullptr, false);
        for (std::string line; all.is_discarded() && std::getline(lines, line);) {
            require(nlohmann::json::accept(line), "JSON lines");
        }
    }
    return 0;
}
