// Upgrades from the start to the outcome, to the millisecond, with gateways of all kinds.
#include "support/gateway_frame.h"
#include "upgrade_scene.h"

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace {

using namespace lan_client;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

void reports_version(upgrade_scene &all, milliseconds when) {
    all.at(when, [&all] { all.gateway.report(frame_type::subdevice_update_rpt, "{}"); });
}

void refuses(upgrade_scene &all, uint32_t ret) {
    all.at(100ms, [&all, ret] { all.gateway.report(frame_type::dev_upgrade, "no", ret); });
}

void gives_up(upgrade_scene &all) {
    all.on_piece = [&all] { all.running = false; };
}

void loses(upgrade_scene &all) {
    all.on_piece = [&all] {
        all.running = false;
        all.gateway.hang_up();
    };
}

const link_change for_ever{link_state::lost, {error_kind::connection_lost, {}}, 0ms};

const std::string transfer = "0 start\n0 transferring\n0 piece of 60\n0 piece of 40\n0 settling\n";

const std::string given_up = "0 start\n0 transferring\n0 piece of 60\n1000 settling\n"
                             "1000 starting\n1000 announcement\n1000 start\n"
                             "1000 transferring\n1000 piece of ";

const std::string lost = "start\ntransferring\npiece of 60\nsettling\nstarting\n"
                         "announcement\nstart\ntransferring\npiece of 60\n";

TEST(upgrade_in_time, asks_what_is_installed_often_at_first_and_then_five_times_a_second) {
    upgrade_scene usual;
    usual.shows_polls = true;
    usual.installs(1000ms, "2.0");
    EXPECT_EQ(usual.tell(), transfer + "0 poll\n10 poll\n31 poll\n74 poll\n161 poll\n336 poll\n"
                                       "536 poll\n736 poll\n936 poll\n1136 poll\n"
                                       "1136 installed with 2.0\n");
    EXPECT_EQ(usual.run->taken_bytes(), 100U);
    EXPECT_TRUE(usual.run->has_image());
    EXPECT_FALSE(usual.run->is_link_lost());
    EXPECT_EQ(usual.answers, 1 + 10) << "expected every answer to be shown";
    EXPECT_EQ(usual.progress, 4) << "expected the start, two pieces and the end to show";
}

TEST(upgrade_in_time, waits_as_long_as_an_installation_may_take) {
    const struct {
        const char *what;
        std::function<void(upgrade_scene &)> plan;
        const char *end;
    } cases[] = {
        {"no word for 30 s", [](upgrade_scene &) {}, "30136 unknown"},
        {"a greater percentage begins them anew",
         [](upgrade_scene &all) {
             all.reports_percent(25s, 1);
             all.reports_percent(50s, 1);
             all.reports_percent(54s, 2, "other");
         },
         "55136 unknown"},
        {"but for 720 s at most",
         [](upgrade_scene &all) {
             for (int told = 1; told < 90; ++told) {
                 all.reports_percent(told * 20s, told);
             }
         },
         "720136 unknown"},
        {"exactly 30 s are not too long", [](upgrade_scene &all) { reports_version(all, 30s); },
         "30200 unknown"},
        {"nor are exactly 720 s",
         [](upgrade_scene &all) {
             for (int told = 1; told <= 36; ++told) {
                 all.reports_percent(told * 20s, told);
             }
             reports_version(all, 720s);
         },
         "720200 unknown"},
        {"another version counts once no percentage has come for 2 s",
         [](upgrade_scene &all) {
             all.reports_percent(536ms, 5);
             all.installs(600ms, "1.0");
         },
         "2536 not installed with 1.0"},
        {"the right version counts at once",
         [](upgrade_scene &all) {
             all.reports_percent(536ms, 5);
             all.installs(600ms, "2.0");
         },
         "736 installed with 2.0"},
        {"another upgrade says nothing of this gateway",
         [](upgrade_scene &all) { all.at(600ms, [&all] { all.running_id = "b"; }); },
         "736 not installed with 1.0"},
    };
    for (const auto &one : cases) {
        upgrade_scene waiting;
        one.plan(waiting);
        EXPECT_EQ(waiting.tell(), transfer + one.end + "\n") << one.what;
    }
}

TEST(upgrade_in_time, of_a_device_ends_when_the_gateway_is_idle) {
    upgrade_scene device(device_order);
    device.before.target_id = "a";
    device.at(600ms, [&device] { device.running_id = "b"; });
    EXPECT_EQ(device.tell(), transfer + "30136 unknown\n")
        << "expected a device's version to be told by an idle gateway only";
}

TEST(upgrade_in_time, a_report_of_a_version_is_looked_into_at_once) {
    upgrade_scene between;
    between.shows_polls = true;
    reports_version(between, 600ms);
    between.installs(1000ms, "2.0");
    EXPECT_EQ(between.tell(), transfer + "0 poll\n10 poll\n31 poll\n74 poll\n161 poll\n336 poll\n"
                                         "536 poll\n600 poll\n800 poll\n"
                                         "1000 poll\n1000 installed with 2.0\n");
}

TEST(upgrade_in_time, asks_one_question_at_a_time) {
    upgrade_scene during;
    during.shows_polls = true;
    during.delays = {500ms, 500ms};
    reports_version(during, 200ms);
    during.installs(600ms, "2.0");
    EXPECT_EQ(during.tell(), transfer + "0 poll\n500 poll\n1021 poll\n"
                                        "1021 installed with 2.0\n");
}

TEST(upgrade_in_time, a_gateway_that_says_that_it_is_upgrading_has_12_s_for_each_request) {
    upgrade_scene silent;
    silent.wants = {wanted_piece(0, 60)};
    silent.shows_polls = true;
    std::string polls;
    for (int second = 1; second <= 13; ++second) {
        polls += std::to_string(second) + "000 poll\n";
    }
    EXPECT_EQ(silent.tell(),
              "0 start\n0 transferring\n0 piece of 60\n" + polls + "13000 stalled with 1.0\n");
    EXPECT_EQ(silent.run->patience(), 12s);
}

TEST(upgrade_in_time, counts_the_12_s_from_the_last_request_on) {
    upgrade_scene slow;
    slow.on_piece = [&slow] {
        slow.at(11500ms, [&slow] {
            slow.gateway.report(frame_type::download_firmware, slow.wants.front());
            slow.wants.pop_front();
        });
    };
    slow.installs(12500ms, "2.0");
    EXPECT_EQ(slow.tell(), "0 start\n0 transferring\n0 piece of 60\n11500 piece of 40\n"
                           "11500 settling\n12636 installed with 2.0\n");
}

TEST(upgrade_in_time, an_answer_from_before_a_request_for_a_piece_ends_nothing) {
    upgrade_scene late;
    late.shows_polls = true;
    late.delays = {500ms};
    late.on_piece = [&late] {
        late.running = false; // for the moment of the first question
        late.at(1200ms, [&late] {
            late.running = true;
            late.gateway.report(frame_type::download_firmware, wanted_piece(60, 30));
        });
        late.wants = {wanted_piece(90, 10), wanted_piece(100, 0)};
        late.at(1300ms, [&late] { late.on_piece = {}; });
    };
    late.at(1100ms, [&late] {
        late.on_piece = [&late] {
            late.at(2s, [&late] {
                late.gateway.report(frame_type::download_firmware, wanted_piece(90, 10));
            });
            late.wants = {wanted_piece(100, 0)};
        };
    });
    late.installs(3250ms, "2.0");
    EXPECT_EQ(late.tell(), "0 start\n0 transferring\n0 piece of 60\n1000 poll\n"
                           "1200 piece of 30\n2500 poll\n3200 piece of 10\n3200 settling\n"
                           "3200 poll\n3210 poll\n3231 poll\n3274 poll\n"
                           "3274 installed with 2.0\n");
}

TEST(upgrade_in_time, is_started_once_more_when_the_gateway_gives_up) {
    upgrade_scene once;
    gives_up(once);
    once.wants = {wanted_piece(0, 60), wanted_piece(0, 100), wanted_piece(100, 0)};
    once.installs(1005ms, "2.0");
    EXPECT_EQ(once.tell(), given_up + "100\n1000 settling\n1010 installed with 2.0\n");
}

TEST(upgrade_in_time, is_not_started_a_third_time) {
    upgrade_scene twice;
    gives_up(twice);
    twice.wants = {wanted_piece(0, 60), wanted_piece(0, 50)};
    twice.at(1500ms, [&twice] { twice.running = false; });
    EXPECT_EQ(twice.tell(), given_up + "50\n2000 settling\n2000 gave up with 1.0\n");
}

TEST(upgrade_in_time, leaves_another_upgrade_alone) {
    upgrade_scene busy;
    busy.on_piece = [&busy] { busy.running_id = "b"; };
    EXPECT_EQ(busy.tell(), "0 start\n0 transferring\n0 piece of 60\n1000 settling\n"
                           "1000 gave up with 1.0\n");
}

TEST(upgrade_in_time, takes_a_version_that_was_there_before_for_no_proof) {
    upgrade_scene same;
    gives_up(same);
    same.before.version = same.version = "2.0";
    same.wants = {wanted_piece(0, 60), wanted_piece(0, 50)};
    same.at(1500ms, [&same] { same.running = false; });
    EXPECT_EQ(same.tell(), given_up + "50\n2000 settling\n2000 gave up with 2.0\n");
}

TEST(upgrade_in_time, goes_on_over_a_new_connection) {
    upgrade_scene back;
    loses(back);
    back.wants = {wanted_piece(0, 60), wanted_piece(0, 60), wanted_piece(60, 40),
                  wanted_piece(100, 0)};
    back.installs(1s, "2.0");
    EXPECT_EQ(back.tell_without_times(), lost + "piece of 40\nsettling\ninstalled with 2.0\n");
}

TEST(upgrade_in_time, tells_that_the_connection_was_lost_twice) {
    upgrade_scene again;
    loses(again);
    again.wants = {wanted_piece(0, 60), wanted_piece(0, 60)};
    again.at(500ms, [&again] {
        again.running = false;
        again.gateway.hang_up();
    });
    EXPECT_EQ(again.tell_without_times(), lost + "settling\ndisconnected with 1.0\n");
    EXPECT_TRUE(again.run->is_link_lost());
}

TEST(upgrade_in_time, blames_no_connection_that_was_lost_before_the_last_start) {
    upgrade_scene later;
    loses(later);
    later.wants = {wanted_piece(0, 60), wanted_piece(0, 60)};
    later.at(500ms, [&later] { later.running = false; });
    EXPECT_EQ(later.tell_without_times(), lost + "settling\ngave up with 1.0\n");
}

TEST(upgrade_in_time, gives_a_gateway_that_can_not_be_asked_12_s) {
    upgrade_scene gone;
    loses(gone);
    gone.gateway.on_connected = {};
    gone.at(0ms, [&gone] { gone.gateway.full = true; });
    EXPECT_EQ(gone.tell(20s),
              "0 start\n0 transferring\n0 piece of 60\n0 settling\n12336 unknown\n");
}

TEST(upgrade_in_time, ends_with_a_connection_that_does_not_come_back) {
    upgrade_scene half;
    half.shows_polls = true;
    half.wants = {wanted_piece(0, 60)};
    half.begin();
    half.pass(500ms);
    half.run->take({link_state::connected, {}, {}});
    EXPECT_FALSE(half.run->is_link_lost());
    half.run->take(for_ever);
    EXPECT_TRUE(half.told_story.text().ends_with("\n500 disconnected connection_lost\n"));
    half.pass(1h);
    EXPECT_TRUE(half.told_story.text().ends_with("\n500 disconnected connection_lost\n"))
        << half.told_story.text();
}

TEST(upgrade_in_time, does_not_know_what_became_of_a_whole_image_without_a_connection) {
    upgrade_scene whole;
    whole.begin();
    whole.pass(500ms);
    whole.run->take(for_ever);
    EXPECT_EQ(whole.told_story.text(), transfer + "500 unknown connection_lost\n");
}

TEST(upgrade_in_time, leaves_a_start_to_fail_by_itself) {
    upgrade_scene early;
    early.begin();
    early.run->take(for_ever);
    early.pass(0ms);
    EXPECT_EQ(early.told_story.text(), transfer);
}

TEST(upgrade_in_time, tells_why_the_gateway_did_not_begin) {
    const std::pair<uint32_t, std::string> withdrawn{1, "file_size is zero"};
    const struct {
        const char *what;
        upgrade_scene::replies starts;
        upgrade_scene::replies announced;
        std::deque<std::string> wants;
        const char *expected;
    } cases[] = {
        {"refused", {{1, "no"}}, {}, {}, "0 start\n0 refused no\n"},
        {"withdrawn by another app, once",
         {withdrawn},
         {},
         {wanted_piece(5, 60)},
         "0 start\n0 announcement\n0 start\n0 transferring\n"
         "0 broken asks for a piece without having got the one before: "},
        {"withdrawn twice",
         {withdrawn, withdrawn},
         {},
         {},
         "0 start\n0 announcement\n0 start\n0 refused file_size is zero\n"},
        {"accepted with these words",
         {{0, "file_size is zero"}},
         {},
         {},
         "0 start\n0 transferring"},
        {"the second announcement refused",
         {withdrawn},
         {{1, "busy"}},
         {},
         "0 start\n0 announcement\n0 refused busy\n"},
    };
    for (const auto &one : cases) {
        upgrade_scene all;
        all.starts = one.starts;
        all.announced = one.announced;
        all.wants = one.wants;
        EXPECT_EQ(all.tell(500ms).substr(0, std::string(one.expected).size()), one.expected)
            << one.what;
    }
}

TEST(upgrade_in_time, tells_that_nobody_answers) {
    upgrade_scene silent;
    silent.gateway.on_request = {};
    EXPECT_EQ(silent.tell(), "1000 refused timed_out\n");
}

TEST(upgrade_in_time, sends_a_piece_that_is_asked_for_before_the_answer) {
    upgrade_scene early;
    early.asks_early = true;
    early.wants = {wanted_piece(0, 60)};
    EXPECT_EQ(early.tell(500ms), "0 start\n0 piece of 60\n1 transferring\n");
}

TEST(upgrade_in_time, tells_that_the_image_can_not_be_read) {
    upgrade_scene unreadable;
    unreadable.can_read = false;
    EXPECT_EQ(unreadable.tell(), "0 start\n0 transferring\n0 broken can't have a piece of the "
                                 "image: it can't be read any more\n");
}

TEST(upgrade_in_time, ends_with_a_refusal_that_follows_the_start) {
    upgrade_scene refused;
    refused.shows_polls = true;
    refused.wants = {wanted_piece(0, 60)};
    refuses(refused, 1);
    EXPECT_EQ(refused.tell(), "0 start\n0 transferring\n0 piece of 60\n100 refused no\n");
}

TEST(upgrade_in_time, may_be_told_again_that_it_has_begun) {
    upgrade_scene accepted;
    accepted.wants = {wanted_piece(0, 60)};
    refuses(accepted, 0);
    accepted.at(200ms, [&accepted] {
        accepted.gateway.send(fuzz::gateway_frame(0, frame_type::dev_upgrade, {1}, "unreadable"));
    });
    EXPECT_EQ(accepted.tell(500ms), "0 start\n0 transferring\n0 piece of 60\n");
    EXPECT_EQ(accepted.others, "230 230 ");
}

TEST(upgrade_in_time, takes_no_refusal_once_the_gateway_has_the_image) {
    upgrade_scene settling;
    refuses(settling, 1);
    EXPECT_EQ(settling.tell(500ms), transfer);
}

TEST(upgrade_in_time, asks_in_one_way_at_a_time) {
    upgrade_scene all;
    all.shows_polls = true;
    all.wants = {wanted_piece(0, 100)};
    all.on_piece = [&all] {
        all.at(500ms,
               [&all] { all.gateway.report(frame_type::download_firmware, wanted_piece(100, 0)); });
        all.delays = {900ms};
    };
    all.installs(1300ms, "2.0");
    EXPECT_EQ(all.tell(), "0 start\n0 transferring\n0 piece of 100\n500 settling\n500 poll\n"
                          "1410 poll\n1410 installed with 2.0\n")
        << "expected nobody to ask at 1000 ms whether it goes on";
}

TEST(upgrade_in_time, a_request_for_a_piece_is_nobody_elses_even_when_nothing_is_sent) {
    upgrade_scene ended;
    const auto asks = [&ended](milliseconds when) {
        ended.at(when, [&ended] {
            ended.gateway.report(frame_type::download_firmware, wanted_piece(0, 60));
            ended.gateway.report(frame_type::dp_report, "{}");
        });
    };
    ended.installs(300ms, "2.0");
    asks(100ms);
    asks(1000ms);
    EXPECT_EQ(ended.tell(), transfer + "336 installed with 2.0\n");
    EXPECT_EQ(ended.others, "8 8 ");
    ended.run.reset();
    ended.gateway.report(frame_type::download_firmware, wanted_piece(0, 60));
    ended.pass(0ms);
    EXPECT_EQ(ended.others, "8 8 231 ");
}

TEST(upgrade_in_time, percentages_count_from_the_end_of_the_transfer_on) {
    upgrade_scene all;
    all.wants = {wanted_piece(0, 60)};
    all.on_piece = [&all] {
        all.reports_percent(100ms, 50);
        all.at(200ms,
               [&all] { all.gateway.report(frame_type::download_firmware, wanted_piece(60, 40)); });
        all.wants = {wanted_piece(100, 0)};
        all.reports_percent(300ms, 40);
        all.reports_percent(400ms, 41);
    };
    all.begin();
    EXPECT_FALSE(all.run->installed_percent());
    all.pass(250ms);
    EXPECT_FALSE(all.run->installed_percent());
    all.pass(100ms);
    EXPECT_EQ(all.run->installed_percent(), 40U);
    const int progress = all.progress;
    all.pass(100ms);
    EXPECT_EQ(all.run->installed_percent(), 41U);
    EXPECT_EQ(all.progress, progress + 1);
    EXPECT_EQ(std::chrono::steady_clock::now() - all.run->last_progress(), 50ms);
    EXPECT_EQ(all.run->patience(), 30s);
}

TEST(upgrade_in_time, an_upgrade_that_is_destroyed_asks_and_tells_nothing_more) {
    for (const milliseconds when : {0ms, 500ms, 1100ms}) {
        upgrade_scene all;
        all.shows_polls = true;
        all.wants = {wanted_piece(0, 60)};
        all.delays = {500ms};
        all.begin();
        all.pass(when);
        all.run.reset();
        const int answers = all.answers;
        const std::string told = all.told_story.text();
        all.pass(1h);
        EXPECT_EQ(all.answers, answers);
        EXPECT_EQ(all.told_story.text(), told);
    }
}

TEST(upgrade_in_time, an_upgrade_that_is_destroyed_when_an_answer_is_shown_has_no_outcome) {
    upgrade_scene all;
    all.starts = {{1, "no"}};
    all.on_answer = [&all] { all.run.reset(); };
    EXPECT_EQ(all.tell(), "0 start\n");
}

} // namespace
