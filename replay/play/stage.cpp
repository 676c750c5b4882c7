#include "play/stage.h"

#include "compare/acts.h"
#include "engr_gatewayd/agent_run.h"
#include "engr_gatewayd/happenings.h"
#include "engr_gatewayd/server_watch.h"
#include "engr_gatewayd/verb_handlers.h"
#include "gateway_services/host.h"
#include "gateway_services/operate.h"
#include "lan_client/frame_types.h"
#include "lan_client/json.h"
#include "play/surroundings.h"
#include "session/secrets.h"
#include "session/wire.h"
#include "session/words.h"
#include "sim/explore.h"
#include "verbs.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <vector>

// In the place of the daemon's, which look at the Linux port and record sessions.
bool gatewayd::server_is_listening() {
    return sim::world::current().listens(replay::lan_port);
}
uint64_t gatewayd::happenings_time() {
    return 0;
}
void gatewayd::tell_control(uint64_t, const std::vector<std::string> &, std::string_view) {}

namespace replay {
namespace {

using nlohmann::ordered_json;
using session::side;
namespace frame_type = lan_client::frame_type;

/** To what the gateway broadcasts. */
constexpr uint16_t broadcast_ports[] = {6667, 6670};
/** Level of the log lines that the daemon keeps. */
constexpr int log_level_max = 2;
/** What the session's last events lead to. */
constexpr uint64_t after_end_ms = 5'000;
/** Longest wait of a reader for its next byte; it then waits again. */
constexpr uint64_t reading_ms = 3'600'000;
/** An app that was accepted in the record is so at the latest after this time. */
constexpr uint64_t listening_ms = 2'000;

/** The same, without the time at which its first byte came. */
session::happening at_once(session::happening what) {
    if (auto *frame = std::get_if<session::frame>(&what)) {
        frame->began_us.reset();
        frame->first_bytes = 0;
    } else if (auto *bytes = std::get_if<session::raw_bytes>(&what)) {
        bytes->began_us.reset();
    }
    return what;
}

/** One recorded app. */
struct played_app {
    uint32_t client;
    sim::peer peer;
    session::stream_words words{side::gateway};
    bool has_closed = false;
};

class stage {
  public:
    stage(sim::world &world, const recording &played, const play_options &how,
          const event_sink &take)
        : world_(world), played_(played), take_(take), clock_(played.begin),
          keys_(session::keys_of(played.begin)), logs_(played), address_(address_of(played)) {
        open_gateway(how);
    }
    stage(const stage &) = delete;
    stage &operator=(const stage &) = delete;

    void play() {
        start();
        for (const act &each : acts_of(played_)) {
            carry_out(each);
        }
        go_to(end_of(played_));
        world_.run_for(after_end_ms);
        stop();
    }

  private:
    void open_gateway(const play_options &how);
    void start();
    void stop();
    void carry_out(const act &one);
    void go_to(uint64_t at_us);
    void settle();
    void say(session::happening what);
    void hand_on(session::event what);

    void connect(const session::connected &of);
    void read(played_app &app);
    void take_bytes(played_app &app, std::string_view bytes);
    void put_piece(const played_app &app, session::stream_piece piece);
    void listen(uint16_t port);
    void close(const session::closed &of);
    void send(uint32_t client, const std::string &bytes);
    void send(const session::datagram &of);
    void operate(const session::control &of);
    [[nodiscard]] session::known_keys keys_now() const;

    sim::world &world_;
    const recording &played_;
    const event_sink &take_;
    session_clock clock_;
    session::key_ring keys_;
    recorded_logs logs_;
    std::string address_;
    std::map<uint32_t, played_app> apps_; // by client; they stay where they are
    std::vector<sim::test_thread> threads_;
    std::optional<sim::udp_peer> sender_;
    bool is_over_ = false;
};

void stage::open_gateway(const play_options &how) {
    const std::string &site = how.site.empty() ? played_.begin.site : how.site;
    const std::string &scenario = how.scenario.empty() ? played_.begin.scenario : how.scenario;
    gateway::open_options options;
    options.initial_site = site.empty() ? gateway::demo_site() : gateway::parse_site(site, "site");
    if (!scenario.empty()) {
        options.faults = gateway::parse_scenario(scenario, "scenario");
    }
    options.newest_log = [this](std::size_t bytes_max) { return logs_.newest(bytes_max); };
    options.address = [this] { return address_; };
    options.installing_ms = [this](uint32_t scenario_ms) {
        const uint64_t now_ms = world_.now_ms();
        const auto end_ms = end_of_installation(played_, clock_, now_ms);
        return end_ms ? static_cast<uint32_t>(*end_ms - now_ms) : scenario_ms;
    };
    gateway::open(std::move(options));
}

void stage::start() {
    for (const uint16_t port : broadcast_ports) {
        listen(port);
    }
    sender_ = world_.open_udp();
    const started_options options = options_of(played_.begin);
    if (options.access_point) {
        gateway::open_access_point();
    }
    gatewayd::start_agent(options.mode);
    settle();
}

void stage::stop() {
    gatewayd::stop_agent();
    settle();
    is_over_ = true;
    for (auto &[client, app] : apps_) {
        app.peer.reset(); // a faulty agent may have left it open
    }
    threads_.clear();
}

void stage::go_to(uint64_t at_us) {
    const uint64_t target_ms = clock_.world_ms(at_us);
    if (target_ms > world_.now_ms()) {
        world_.run_for(target_ms - world_.now_ms());
    }
    settle();
}

/** Lets everything happen that takes no time, and hands on what was logged. */
void stage::settle() {
    world_.run_until_idle();
    for (const sim::log_line &line : world_.log().lines()) {
        if (line.level <= log_level_max) {
            hand_on({.at_us = clock_.session_us(line.time_ms),
                     .what = session::log_line{.level = line.level, .text = line.message}});
        }
    }
    world_.log().clear();
}

void stage::say(session::happening what) {
    hand_on({.at_us = clock_.session_us(world_.now_ms()), .what = std::move(what)});
}

/** What the record does not show is not shown here either. */
void stage::hand_on(session::event what) {
    if (is_over_) {
        return;
    }
    take_(played_.begin.has_secrets
              ? what
              : session::without_secrets(std::move(what), keys_now(), played_.begin.key));
}

/** Does what an app or the operator did. */
void stage::carry_out(const act &one) {
    const session::event &each = *one.what;
    go_to(one.at_us);
    const auto *control = std::get_if<session::control>(&each.what);
    if (control == nullptr && one.is_first) {
        say(at_once(each.what)); // a line of the operator is told with its answer
    }
    if (const auto *connected = std::get_if<session::connected>(&each.what)) {
        connect(*connected);
    } else if (const auto *closed = std::get_if<session::closed>(&each.what)) {
        close(*closed);
    } else if (control != nullptr) {
        operate(*control);
    } else if (const auto *datagram = std::get_if<session::datagram>(&each.what)) {
        send(*datagram);
    } else {
        logs_.note_request(each);
        const std::string bytes = session::wire_bytes(each, keys_).value_or("");
        send(client_of_app_event(each),
             bytes.substr(std::min(one.first_byte, bytes.size()), one.bytes_max));
    }
    settle();
}

void stage::connect(const session::connected &of) {
    world_.run_until_listening(lan_port, listening_ms);
    sim::peer peer = world_.connect(lan_port);
    if (!peer) {
        return say(session::closed{.client = of.client, .by = side::gateway});
    }
    const auto [place, is_new] = apps_.try_emplace(of.client, played_app{of.client, peer});
    if (is_new) {
        threads_.push_back(world_.spawn(fmt::format("app {}", of.client),
                                        [this, app = &place->second] { read(*app); }));
    }
}

/** Takes what the gateway sends to an app, until one of them closes the connection. */
void stage::read(played_app &app) {
    while (!app.has_closed) {
        const std::string first = app.peer.receive(1, reading_ms);
        take_bytes(app, first + app.peer.receive_available());
        if (app.peer.ended() || app.peer.was_reset()) {
            break;
        }
    }
    if (auto rest = app.words.finish()) {
        put_piece(app, std::move(*rest));
    }
    if (!app.has_closed) {
        say(session::closed{.client = app.client, .by = side::gateway});
    }
}

void stage::take_bytes(played_app &app, std::string_view bytes) {
    const uint64_t now_us = clock_.session_us(world_.now_ms());
    for (session::stream_piece &piece : app.words.take(now_us, bytes)) {
        put_piece(app, std::move(piece));
    }
}

void stage::put_piece(const played_app &app, session::stream_piece piece) {
    if (auto *whole = std::get_if<lan_client::frame>(&piece.content)) {
        say(session::frame{.client = app.client,
                           .from = side::gateway,
                           .began_us = {},
                           .content =
                               session::words_of(side::gateway, std::move(*whole), keys_now())});
    } else {
        say(session::raw_bytes{.client = app.client,
                               .from = side::gateway,
                               .began_us = {},
                               .bytes = std::get<std::string>(piece.content)});
    }
}

/** Takes what is broadcast to a port. */
void stage::listen(uint16_t port) {
    threads_.push_back(world_.spawn(fmt::format("port {}", port), [this, port] {
        sim::udp_peer listener = world_.open_udp(port);
        while (!is_over_) {
            if (const auto got = listener.receive()) {
                say(session::datagram{.from = side::gateway,
                                      .port = port,
                                      .peer = "255.255.255.255",
                                      .content = session::datagram_words(side::gateway, port,
                                                                         got->bytes, keys_now())});
            }
        }
    }));
}

void stage::close(const session::closed &of) {
    if (const auto found = apps_.find(of.client); found != apps_.end()) {
        found->second.has_closed = true;
        of.by ? found->second.peer.close() : found->second.peer.reset();
    }
}

void stage::send(uint32_t client, const std::string &bytes) {
    if (const auto found = apps_.find(client); found != apps_.end()) {
        found->second.peer.send(bytes);
    }
}

void stage::send(const session::datagram &of) {
    sender_->send(of.port, session::wire_bytes(of, keys_));
}

/** Apps go on while a line of the operator waits. It is told twice: its answer may never come. */
void stage::operate(const session::control &of) {
    say(session::activity{"the operator calls " + of.line.front()});
    threads_.push_back(world_.spawn("control", [this, of] {
        const std::string reply = gatewayd::answer_request(
            control::request_line({of.line.front(), {of.line.begin() + 1, of.line.end()}}));
        const std::string_view line = std::string_view(reply).substr(0, reply.find('\n'));
        say(session::control{.began_us = {}, .line = of.line, .answer = std::string(line)});
    }));
}

session::known_keys stage::keys_now() const {
    return {.local = {keys_.local}, .built_in = keys_};
}

} // namespace

std::string play_here(const recording &played, const play_options &how, const event_sink &take) {
    const sim::run_result result = sim::run_story(
        {.seed = how.seed, .posix_s = session_clock(played.begin).posix_s(), .quiet_points = false},
        [&](sim::world &world) { stage(world, played, how, take).play(); });
    return result.ended_early && !result.problems.empty() ? result.problems.back() : "";
}

} // namespace replay
