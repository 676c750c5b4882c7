// Vocabulary of the upgrade service's tests: offers, an app that drives upgrades, and what the
// gateway shows of them.
#pragma once

#include "story_gateway.h"

#include "gateway/device.h"
#include "lan_client/frame_types.h"
#include "platform/crypto.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <set>

namespace frame_type = lan_client::frame_type;

inline std::string md5_of(std::string_view bytes) {
    uni_md5_context_t context;
    uint8_t digest[MD5_DIGEST_SIZE];
    uni_md5_init(&context);
    uni_md5_update(&context, reinterpret_cast<const uint8_t *>(bytes.data()),
                   static_cast<uint32_t>(bytes.size()));
    uni_md5_final(&context, digest);
    std::string text;
    for (const uint8_t byte : digest) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02X", byte);
        text += digits;
    }
    return text;
}

/** What an app offers. */
struct offer {
    std::string bytes = "0123456789";
    std::string version = "2.0.1";
    std::string cid = {}; /**< empty: the gateway */
    std::string md5 = md5_of(bytes);
};

inline offer image_of(size_t size, const std::string &cid = "") {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    }
    return {.bytes = bytes, .cid = cid};
}

inline std::string chunk_of(std::string_view bytes, uint64_t offset) {
    std::string payload;
    for (const int shift : {24, 16, 8, 0}) {
        payload += static_cast<char>(offset >> shift);
    }
    return payload.append(bytes);
}

/** An app that drives upgrades. */
struct upgrade_app {
    /**
     * Announces an image and asks for its start.
     *
     * @return the answer to the latter
     */
    std::string offer_image(const offer &what) {
        nlohmann::json told{{"swVer", what.version},
                            {"fileSize", what.bytes.size()},
                            {"fileMd5", what.md5},
                            {"cid", what.cid},
                            {"firmwareType", what.cid.empty() ? 0 : 10}};
        app.ask(what.cid.empty() ? frame_type::chk_soft_ver : frame_type::dev_upgrade_info,
                told.dump(), true);
        return app.ask(frame_type::dev_upgrade, told.dump(), true);
    }
    /** The next request for a chunk, as "OFFSET+SIZE"; "nothing" when none comes. Progress goes to
     * percents, other frames to others. */
    std::string next_request() {
        while (const auto frame = app.receive()) {
            const std::string text =
                lan_client::decrypt(app.key, frame->payload).value_or("(undecryptable)");
            const auto json = nlohmann::json::parse(text, nullptr, false);
            if (frame->type == frame_type::download_firmware) {
                return json["offset"].dump() + "+" + json["downloadSize"].dump();
            }
            if (frame->type == frame_type::upgrade_percent_rpt) {
                percents.push_back(json["progress"]);
            } else {
                others.push_back(std::to_string(frame->type) + text);
            }
        }
        return "nothing";
    }
    /**
     * Serves requests until the image is complete or no more come.
     *
     * @return the requests
     */
    std::string serve(const std::string &bytes) {
        std::string requests;
        for (std::string next = next_request(); next != "nothing"; next = next_request()) {
            requests += (requests.empty() ? "" : " ") + next;
            const size_t offset = std::stoul(next);
            const size_t size = std::stoul(next.substr(next.find('+') + 1));
            if (size == 0) {
                break;
            }
            app.send(0, frame_type::download_firmware,
                     chunk_of(bytes.substr(offset, size), offset));
        }
        return requests;
    }

    story_app app;
    std::vector<int> percents = {};
    std::vector<std::string> others = {};
};

inline nlohmann::ordered_json upgrade_status() {
    return gateway::status()["upgrade"];
}
inline std::string upgrade_state() {
    return upgrade_status()["state"];
}
/** Lets time pass until the upgrade is in one of the states. */
inline bool comes_to(sim::world &world, const std::set<std::string> &states) {
    for (int steps = 0; steps < 20'000 && !states.contains(upgrade_state()); ++steps) {
        world.run_for(10);
    }
    return states.contains(upgrade_state());
}
inline std::string version_of(const std::string &dev_id) {
    return dev_id.empty() ? std::string(engr_get_gw_cntl()->gw_sw_ver)
                          : std::string(engr_get_dev_cntl(dev_id.c_str())->sw_ver);
}

/** A started gateway with one app. */
struct upgrade_story {
    explicit upgrade_story(sim::world &in, const std::string &options = "{}")
        : world(in), gateway(in, small_site, R"({"upgrade": )" + options + "}") {
        gateway.start();
    }
    upgrade_app connect() { return {gateway.connect()}; }
    /** A whole upgrade that has to succeed. */
    void succeed(const offer &what, bool is_started = true) {
        upgrade_app app = connect();
        EXPECT_EQ(app.offer_image(what), "230/7/0/");
        if (!is_started) {
            EXPECT_TRUE(comes_to(world, {"offered"}));
            EXPECT_EQ(gateway::start_upgrade({}), 0);
        }
        app.serve(what.bytes);
        EXPECT_TRUE(comes_to(world, {"installed"})) << upgrade_status();
        EXPECT_EQ(version_of(what.cid), what.version);
        world.run_for(1000);
    }

    sim::world &world;
    story_gateway gateway;
};
