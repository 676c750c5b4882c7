// What is asked of a gateway before an upgrade.
#include "upgrade_scene.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace lan_client;
using namespace std::chrono_literals;

/** What a gateway is asked before an upgrade, and what is made of its answers. */
struct inquiry_case {
    const char *what;
    upgrade_question question;
    std::map<uint32_t, std::pair<uint32_t, std::string>> answers; // by frame type
    const char *asked;
    const char *result;
};

TEST(upgrade_inquiry, asks_the_gateway_first_and_then_its_device) {
    const std::string idle = R"({"updateStatus":0,"updateCid":"","cid":"gw","softVer":"1.0"})";
    const std::string busy = R"({"updateStatus":1,"updateCid":"b","cid":"gw","softVer":"1.0"})";
    const std::string no_version = R"({"updateStatus":0,"softVer":""})";
    const std::string of_device = R"({"updateStatus":0,"softVer":"3"})";
    const std::string list = R"({"products":[{"cid":"a"}]})";
    const std::string nobody = "online_dev or offline_dev is null";
    const inquiry_case cases[] = {
        {"gateway", {.order = gateway_order}, {{250, {0, idle}}}, "250:0 ", "gw idle gw 1.0"},
        {"announced",
         {.order = gateway_order, .announce = true},
         {{250, {0, idle}}},
         "250:100 ",
         "gw idle gw 1.0"},
        {"refused", {.order = gateway_order}, {{250, {1, idle}}}, "250:0 ", "- none"},
        {"no status", {.order = gateway_order}, {{250, {0, "{}"}}}, "250:0 ", "- none"},
        {"silent", {.order = gateway_order}, {}, "250:0 ", "- none"},
        {"device",
         {.order = device_order, .announce = true},
         {{250, {0, idle}}, {229, {0, of_device}}},
         "250:0 229:100 ",
         "gw idle a 3"},
        {"device of a busy gateway",
         {.order = device_order, .announce = true},
         {{250, {0, busy}}},
         "250:0 ",
         "gw busy a "},
        {"device that refuses",
         {.order = device_order},
         {{250, {0, idle}}, {229, {1, "no"}}},
         "250:0 229:0 ",
         "gw none"},
        {"device without a version",
         {.order = device_order},
         {{250, {0, idle}}, {229, {0, no_version}}},
         "250:0 229:0 ",
         "gw idle a "},
        {"device that is looked for",
         {.order = device_order, .check_device = true},
         {{250, {0, idle}}, {229, {0, no_version}}, {241, {0, list}}},
         "250:0 229:0 241 ",
         "gw idle a "},
        {"device with a version",
         {.order = device_order, .check_device = true},
         {{250, {0, idle}}, {229, {0, of_device}}},
         "250:0 229:0 ",
         "gw idle a 3"},
        {"unknown device",
         {.order = {"c", "2.0", 100, "m"}, .check_device = true},
         {{250, {0, idle}}, {229, {0, no_version}}, {241, {0, list}}},
         "250:0 229:0 241 ",
         "gw none unknown"},
        {"no devices",
         {.order = device_order, .check_device = true},
         {{250, {0, idle}}, {229, {0, no_version}}, {241, {1, nobody}}},
         "250:0 229:0 241 ",
         "gw none unknown"},
        {"no list",
         {.order = device_order, .check_device = true},
         {{250, {0, idle}}, {229, {0, no_version}}, {241, {1, list}}},
         "250:0 229:0 241 ",
         "gw none"},
    };
    for (const inquiry_case &one : cases) {
        SCOPED_TRACE(one.what);
        upgrade_scene all;
        std::string asked;
        all.gateway.on_request = [&](const frame &seen) {
            const auto body = nlohmann::json::parse(text_of(seen), nullptr, false);
            asked += std::to_string(seen.type) +
                     (body.is_object() ? ":" + body["fileSize"].dump() : "") + " ";
            if (const auto found = one.answers.find(seen.type); found != one.answers.end()) {
                all.gateway.reply(seen, found->second.first, found->second.second);
            }
        };
        std::string result;
        int seen_answers = 0;
        ask_upgrade_status(
            *all.app, one.question, [&](const answer &) { ++seen_answers; },
            [&](const upgrade_answer &got) {
                result = got.gateway_id.empty() ? "-" : got.gateway_id;
                result += !got.status ? " none" : got.status->running ? " busy " : " idle ";
                result += got.status ? got.status->target_id + " " + got.status->version : "";
                result += got.unknown_device ? " unknown" : "";
            });
        all.pass(2s);
        EXPECT_EQ(asked, one.asked);
        EXPECT_EQ(result, one.result);
        EXPECT_EQ(seen_answers, std::ranges::count(asked, ' '));
    }
}

} // namespace
