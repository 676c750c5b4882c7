// The upgrades of the tests in virtual time.
#include "upgrade_scene.h"

#include "support/virtual_loop.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace lan_client;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

const char *const end_names[] = {"installed", "not installed", "gave up", "disconnected",
                                 "unknown",   "refused",       "stalled", "broken"};
const char *const step_names[] = {"starting", "transferring", "settling"};

} // namespace

std::string wanted_piece(int offset, int bytes) {
    return R"({"firmwareType":0,"cid":"gw","offset":)" + std::to_string(offset) +
           R"(,"downloadSize":)" + std::to_string(bytes) + "}";
}

upgrade_scene::upgrade_scene(upgrade_order wanted) : order(std::move(wanted)) {
    gateway.on_request = [this](const frame &seen) { take(seen); };
    client_options chosen;
    chosen.address = "192.0.2.1";
    chosen.keys = {unactivated_key()};
    chosen.request_timeout = 1s;
    chosen.reconnect = true;
    chosen.pause = reconnect_pause(2ms, 2ms);
    client_events events;
    events.on_report = [this](const report &told) {
        if (!run || !run->take(told)) {
            others += std::to_string(told.type) + " ";
        }
    };
    events.on_link = [this](const link_change &change) {
        if (run) {
            run->take(change);
        }
    };
    app.emplace(loop, chosen, events);
    app->open();
    pass(1s); // until it is connected
}

void upgrade_scene::pass(milliseconds time) {
    loop.run_until([] { return false; }, time);
}

void upgrade_scene::begin() {
    told_story = {};
    run.emplace(
        loop, *app, order, 1s,
        [this](std::string &bytes, uint64_t, std::size_t count) {
            bytes.append(can_read ? count : 0, 'i');
            return can_read;
        },
        image_upgrade::callbacks{
            .on_step =
                [this](upgrade_step step) {
                    told_story.note(step_names[static_cast<int>(step)]);
                    EXPECT_EQ(run->step(), step);
                },
            .on_progress = [this] { ++progress; },
            .on_answer =
                [this](const answer &) {
                    ++answers;
                    if (on_answer) {
                        on_answer();
                    }
                },
            .on_end = [this](const upgrade_outcome &outcome) { note(outcome); }});
    run->start({.status = before, .gateway_id = "gw", .last = {}});
}

std::string upgrade_scene::tell(milliseconds time) {
    begin();
    pass(time);
    return told_story.text();
}

std::string upgrade_scene::tell_without_times() {
    begin();
    told_story.has_times = false;
    pass(1h);
    return told_story.text();
}

void upgrade_scene::at(milliseconds when, std::function<void()> work) {
    fuzz::call_later(when, std::move(work));
}

void upgrade_scene::installs(milliseconds when, const std::string &installed) {
    at(when, [this, installed] {
        running = false;
        version = installed;
    });
}

void upgrade_scene::reports_percent(milliseconds when, int percent, const std::string &id) {
    at(when, [this, percent, id] {
        gateway.report(frame_type::upgrade_percent_rpt,
                       R"({"cid":")" + id + R"(","progress":)" + std::to_string(percent) + "}");
    });
}

void upgrade_scene::note(const upgrade_outcome &outcome) {
    const std::string more[] = {outcome.status ? "with " + outcome.status->version : "",
                                outcome.last.payload, outcome.fault,
                                outcome.last.failure ? error_name(outcome.last.failure.kind) : ""};
    std::string line = end_names[static_cast<int>(outcome.end)];
    for (const std::string &one : more) {
        line += one.empty() ? "" : " " + one;
    }
    told_story.note(line);
}

void upgrade_scene::take(const frame &seen) {
    switch (seen.type) {
    case frame_type::keepalive:
        return gateway.reply(seen, 0, "");
    case frame_type::download_firmware:
        told_story.note("piece of " + std::to_string(seen.payload.size() - 4));
        return on_piece ? std::exchange(on_piece, {})() : want_next();
    case frame_type::dev_upgrade:
        told_story.note("start");
        if (!starts.empty()) {
            gateway.reply(seen, starts.front().first, starts.front().second);
            return starts.pop_front();
        }
        running = true;
        gateway.reply(seen, 0, "", asks_early ? 1ms : 0ms);
        return want_next();
    default:
        return answer_announcement(seen);
    }
}

void upgrade_scene::answer_announcement(const frame &seen) {
    const bool has_image = nlohmann::json::parse(text_of(seen))["fileSize"] == 100;
    if (has_image || shows_polls) {
        told_story.note(has_image ? "announcement" : "poll");
    }
    if (has_image && !announced.empty()) {
        gateway.reply(seen, announced.front().first, announced.front().second);
        return announced.pop_front();
    }
    const milliseconds after = delays.empty() ? 0ms : delays.front();
    if (!delays.empty()) {
        delays.pop_front();
    }
    gateway.reply(seen, 0,
                  R"({"updateStatus":)" + std::to_string(running ? 1 : 0) + R"(,"updateCid":")" +
                      running_id + R"(","cid":"gw","softVer":")" + version + "\"}",
                  after);
}

void upgrade_scene::want_next() {
    if (!wants.empty()) {
        gateway.report(frame_type::download_firmware, wants.front());
        wants.pop_front();
    }
}
