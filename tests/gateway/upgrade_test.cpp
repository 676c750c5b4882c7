// The upgrade service under the agent: whole courses, refusals, and every way to fail, after which
// the old version is in place and the next try works.
#include "gateway/device.h"
#include "gateway_services/error.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "story_gateway.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

namespace {

using testing::HasSubstr;

constexpr uint32_t check_version = 250;
constexpr uint32_t device_info = 229;
constexpr uint32_t start = 230;
constexpr uint32_t chunk = 231;

std::string md5_of(std::string_view bytes) {
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

offer image_of(size_t size, const std::string &cid = "") {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return {.bytes = bytes, .cid = cid};
}

std::string chunk_of(std::string_view bytes, uint64_t offset) {
    std::string payload;
    for (const int shift : {24, 16, 8, 0})
        payload += static_cast<char>(offset >> shift);
    return payload.append(bytes);
}

/** An app that drives upgrades. */
struct upgrade_app {
    /** Announces an image and asks for its start. @return the answer to the latter */
    std::string offer_image(const offer &what) {
        nlohmann::json told{{"swVer", what.version},
                            {"fileSize", what.bytes.size()},
                            {"fileMd5", what.md5},
                            {"cid", what.cid},
                            {"firmwareType", what.cid.empty() ? 0 : 10}};
        app.ask(what.cid.empty() ? check_version : device_info, told.dump(), true);
        return app.ask(start, told.dump(), true);
    }
    /** The next request for a chunk, as "OFFSET+SIZE"; "nothing" when none comes. Progress goes to
     * percents, other frames to others. */
    std::string next_request() {
        while (const auto frame = app.receive()) {
            const std::string text =
                lan_client::decrypt(app.key, frame->payload).value_or("(undecryptable)");
            const auto json = nlohmann::json::parse(text, nullptr, false);
            if (frame->type == chunk)
                return json["offset"].dump() + "+" + json["downloadSize"].dump();
            if (frame->type == 232)
                percents.push_back(json["progress"]);
            else
                others.push_back(std::to_string(frame->type) + text);
        }
        return "nothing";
    }
    /** Serves requests until the image is complete or no more come. @return the requests */
    std::string serve(const std::string &bytes) {
        std::string requests;
        for (std::string next = next_request(); next != "nothing"; next = next_request()) {
            requests += (requests.empty() ? "" : " ") + next;
            const size_t offset = std::stoul(next);
            const size_t size = std::stoul(next.substr(next.find('+') + 1));
            if (size == 0)
                break;
            app.send(0, chunk, chunk_of(bytes.substr(offset, size), offset));
        }
        return requests;
    }

    story_app app;
    std::vector<int> percents = {};
    std::vector<std::string> others = {};
};

nlohmann::ordered_json upgrade_status() {
    return gateway::status()["upgrade"];
}
std::string upgrade_state() {
    return upgrade_status()["state"];
}
/** Lets time pass until the upgrade is in one of the states. */
bool comes_to(sim::world &world, const std::set<std::string> &states) {
    for (int steps = 0; steps < 20'000 && !states.contains(upgrade_state()); ++steps)
        world.run_for(10);
    return states.contains(upgrade_state());
}
std::string version_of(const std::string &dev_id) {
    return dev_id.empty() ? std::string(engr_get_gw_cntl()->gw_sw_ver)
                          : std::string(engr_get_dev_cntl(dev_id.c_str())->sw_ver);
}

/** A started gateway with one app. */
struct upgrade_story {
    explicit upgrade_story(sim::world &in, const std::string &knobs = "{}")
        : world(in), gateway(in, small_site, R"({"upgrade": )" + knobs + "}") {
        gateway.start();
    }
    upgrade_app connect() { return {gateway.connect()}; }
    /** A whole upgrade that has to succeed. */
    void succeed(const offer &what) {
        upgrade_app app = connect();
        EXPECT_EQ(app.offer_image(what), "230/7/0/");
        app.serve(what.bytes);
        EXPECT_TRUE(comes_to(world, {"installed"})) << upgrade_status();
        EXPECT_EQ(version_of(what.cid), what.version);
        world.run_for(1000);
    }

    sim::world &world;
    story_gateway gateway;
};

struct upgrade_service : sim::test {};

TEST_F(upgrade_service, takes_images_in_the_chunks_it_asked_for) {
    const struct {
        const char *knobs;
        offer what;
        const char *requests;
        std::vector<int> percents;
    } courses[] = {
        {"{}", image_of(1), "0+1 1+0", {50}},
        {"{}", image_of(524'289), "0+524288 524288+1 524289+0", {98, 98}},
        {R"({"chunk_size": 4})", image_of(10), "0+4 4+4 8+2 10+0", {36, 72, 90}},
        {R"({"chunk_size": 4, "remain_len": 1})", image_of(8), "0+4 3+4 6+2 8+0", {33, 66, 88}},
        {R"({"chunk_size": 2, "remain_len": 9})", image_of(4), "0+2 1+2 2+2 4+0", {20, 40, 80}},
        {R"({"rpt_percent": 0})", image_of(3, "lamp"), "0+3 3+0", {}},
        {R"({"install_ms": 0})", image_of(3, "lamp"), "0+3 3+0", {75, 99, 100}},
    };
    for (const auto &course : courses) {
        SCOPED_TRACE(course.knobs);
        upgrade_story story(world, course.knobs);
        upgrade_app app = story.connect();
        EXPECT_EQ(app.offer_image(course.what), "230/7/0/");
        EXPECT_EQ(app.serve(course.what.bytes), course.requests);
        EXPECT_TRUE(comes_to(world, {"installed"})) << upgrade_status();
        EXPECT_EQ(app.next_request(), "nothing");
        EXPECT_EQ(app.percents, course.percents);
        const std::string report = R"(233{"firmwareType":10, "cid":"lamp", "softVer":"2.0.1"})";
        EXPECT_EQ(app.others, course.what.cid.empty() ? std::vector<std::string>{}
                                                      : std::vector<std::string>{report});
        EXPECT_EQ(version_of(course.what.cid), "2.0.1");
        EXPECT_EQ(engr_get_gw_ext_stat(), GW_EXT_STAT_UPGRADE_ENDED);
        story.succeed({.version = "2.0.2"});
    }
}

TEST_F(upgrade_service, leaves_its_callbacks_in_the_trace) {
    upgrade_story story(world, R"({"chunk_size": 2})");
    const offer what{.bytes = "a\"c", .cid = "lamp"};
    story.succeed(what);
    const std::string record =
        R"("record": {"fw_kind": 3, "sw_ver": "2.0.1", "file_size": 3, "file_md5": ")" + what.md5 +
        "\"}";
    std::vector<std::string> traced;
    for (const std::string &line : story.gateway.trace) {
        if (line.find("record") != std::string::npos)
            traced.push_back(line);
    }
    EXPECT_THAT(traced, testing::ElementsAre(
                            R"({"call": "dev_lan_ug_cb", "args": {"dev_id": "lamp", )" + record +
                                R"(}, "result": 0})",
                            R"({"call": "get_file_cb", "args": {)" + record +
                                R"(, "total_size": 3, "offset": 0, "data": "a\""}, "result": 0})",
                            R"({"call": "get_file_cb", "args": {)" + record +
                                R"(, "total_size": 3, "offset": 2, "data": "c"}, "result": 0})",
                            R"({"call": "ug_notify_cb", "args": {)" + record +
                                R"(, "result": 0}, "result": 0})"));
}

TEST_F(upgrade_service, refuses_what_it_cannot_install_and_says_why) {
    const struct {
        const char *knobs;
        offer what;
        const char *reason;
    } offers[] = {
        {R"({"refuse_same_version": 1})", {.version = "1.0.0"}, "is installed already"},
        {"{}", {.version = ""}, "has no version"},
        {"{}", {.version = "a\"b"}, "version may hold neither a double quote"},
        {"{}", {.cid = "nosuch"}, "nosuch"},
        {"{}", image_of(64 * 1024 * 1024 + 1), "there is no room for an image of 67108865 bytes"},
    };
    for (const auto &each : offers) {
        SCOPED_TRACE(each.reason);
        upgrade_story story(world, each.knobs);
        upgrade_app app = story.connect();
        EXPECT_EQ(app.offer_image(each.what), "230/7/0/");
        EXPECT_THAT(app.app.receive_text(), testing::MatchesRegex("230/7/1/.*_lan_ug_cb error"));
        EXPECT_EQ(upgrade_state(), "refused");
        EXPECT_THAT(upgrade_status()["reason"], HasSubstr(each.reason));
        story.succeed({});
    }
}

TEST_F(upgrade_service, keeps_the_old_version_when_an_upgrade_fails_and_takes_the_next_one) {
    using app_does = void (*)(upgrade_app &, sim::world &);
    const struct {
        const char *knobs;
        app_does act;
        const char *reason;
    } failures[] = {
        {"{}", [](upgrade_app &a, sim::world &) { a.serve("012345678X"); },
         "the image is damaged: its MD5 is "},
        {R"({"chunk_size": 4})",
         [](upgrade_app &a, sim::world &) { a.app.send(0, chunk, chunk_of("67", 6)); },
         "bytes 6 to 8 came, wanted were those from 0 to at most 10"},
        {R"({"chunk_size": 4})",
         [](upgrade_app &a, sim::world &) {
             a.app.send(0, chunk, chunk_of("0123", 0));
             a.app.send(0, chunk, chunk_of("12", 1));
         },
         "bytes 1 to 3 came, wanted were those from 4 to at most 10"},
        {"{}", [](upgrade_app &a, sim::world &) { a.app.send(0, chunk, chunk_of("", 0)); },
         "bytes 0 to 0 came"},
        {"{}",
         [](upgrade_app &a, sim::world &) { a.app.send(0, chunk, chunk_of("0123456789X", 0)); },
         "bytes 0 to 11 came"},
        {"{}", [](upgrade_app &a, sim::world &) { a.app.send(0, chunk, chunk_of("9", 4000)); },
         "the app left, fell silent or sent more than the image"},
        {"{}", [](upgrade_app &a, sim::world &) { a.app.peer.close(); }, "the app left"},
        {"{}", [](upgrade_app &, sim::world &w) { w.run_for(40'001); }, "fell silent"},
        {R"({"fail_at": 10, "chunk_size": 4})",
         [](upgrade_app &a, sim::world &) { a.serve(std::string(11, '0')); },
         "byte 10 cannot be taken"},
    };
    for (const auto &each : failures) {
        SCOPED_TRACE(each.reason);
        upgrade_story story(world, each.knobs);
        {
            upgrade_app app = story.connect();
            const bool is_longer = std::string_view(each.reason).starts_with("byte 10");
            EXPECT_EQ(app.offer_image({.bytes = is_longer ? "01234567890" : "0123456789"}),
                      "230/7/0/");
            EXPECT_TRUE(comes_to(world, {"receiving"}));
            each.act(app, world);
            EXPECT_TRUE(comes_to(world, {"failed"})) << upgrade_status();
        }
        EXPECT_THAT(upgrade_status()["reason"], HasSubstr(each.reason));
        EXPECT_TRUE(world.log().has(0, upgrade_status()["reason"].get<std::string>()));
        EXPECT_EQ(version_of(""), "1.0.0");
        story.succeed({});
    }
}

TEST_F(upgrade_service, refuses_a_second_image_while_one_is_installed) {
    upgrade_story story(world, R"({"install_ms": 130000})");
    upgrade_app app = story.connect();
    app.offer_image({.version = "3", .cid = "lamp"});
    app.serve("0123456789");
    world.run_for(121'000);
    upgrade_app other = story.connect();
    EXPECT_EQ(other.offer_image({.version = "4"}), "230/7/0/")
        << "the agent has given up waiting for the installation";
    EXPECT_EQ(other.app.receive_text(), "230/7/1/gw_lan_ug_cb error");
    EXPECT_EQ(upgrade_state(), "installing");
    EXPECT_THROW(gateway::start_upgrade({}), gateway::refused);
    EXPECT_TRUE(comes_to(world, {"installed"}));
    EXPECT_EQ(version_of("lamp"), "3");
    EXPECT_EQ(version_of(""), "1.0.0");
    story.succeed({.version = "4"});
}

TEST_F(upgrade_service, starts_a_transfer_by_itself) {
    upgrade_story story(world, R"({"never_start": true, "install_ms": 0})");
    upgrade_app app = story.connect();
    const offer what = image_of(10, "lamp");
    EXPECT_EQ(app.offer_image(what), "230/7/0/");
    EXPECT_EQ(app.next_request(), "nothing");
    EXPECT_EQ(upgrade_state(), "offered");
    EXPECT_EQ(gateway::start_upgrade({.chunk_size = 5, .percent = false, .remain = 1}), 0);
    EXPECT_EQ(app.next_request(), "0+5");
    app.app.send(0, chunk, chunk_of(what.bytes.substr(0, 5), 0));
    EXPECT_EQ(app.next_request(), "4+5");
    EXPECT_EQ(gateway::start_upgrade({}), 0) << "a second one begins anew";
    EXPECT_EQ(app.serve(what.bytes), "0+10 10+0");
    EXPECT_TRUE(comes_to(world, {"installed"})) << upgrade_status();
    EXPECT_EQ(version_of("lamp"), "2.0.1");
    EXPECT_EQ(gateway::start_upgrade({.cid = "gw0001", .file_size = 3}), 0);
    EXPECT_EQ(app.next_request(), "0+3");
    EXPECT_TRUE(comes_to(world, {"failed"})) << "no upgrade is under way, so no chunk is taken";
    gateway::set_callback("ug_notify_cb", gateway::callback_mode::absent);
    EXPECT_EQ(gateway::start_upgrade({}), ENGR_ERR_ARGUMENT);
    EXPECT_EQ(upgrade_status()["reason"], "the transfer cannot be started: result -2");
}

TEST(upgrade_service_races, have_one_end_each_and_leave_a_gateway_that_takes_the_next_image) {
    sim::expect_all_seeds(300, [](sim::world &world) {
        upgrade_story story(world, R"({"chunk_size": 4, "install_ms": 50})");
        {
            upgrade_app app = story.connect();
            app.offer_image({.version = "3", .cid = "lamp"});
            auto leaver = world.spawn("leaver", [&] {
                kelo_hal_system_sleep(static_cast<uint32_t>(world.seed() % 7 * 10));
                app.app.peer.close();
            });
            app.serve("0123456789");
        }
        EXPECT_TRUE(comes_to(world, {"failed", "installed"})) << upgrade_status();
        EXPECT_EQ(version_of("lamp"), upgrade_state() == "failed" ? "" : "3");
        world.run_for(1000);
        story.succeed({.version = "4"});
        size_t outcomes = 0;
        for (const std::string &line : story.gateway.trace)
            outcomes += line.find("ug_notify_cb") != std::string::npos ? 1 : 0;
        EXPECT_LE(outcomes, 2U);
    });
}

/** A gateway on files, in a directory of its own. */
struct upgrade_files : sim::test {
    upgrade_files() {
        char name[] = "/tmp/engr_upgrade_XXXXXX";
        directory = mkdtemp(name);
        std::filesystem::current_path(directory);
    }
    ~upgrade_files() override {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(directory);
    }

    void open(const std::string &scenario = "{}") {
        gateway::open_options options;
        options.store_path = "gateway.db";
        options.initial_site = gateway::parse_site(small_site, "site");
        options.faults = gateway::parse_scenario(scenario, "scenario");
        options.address = [] { return std::string("192.168.1.1"); };
        gateway::open(std::move(options));
        EXPECT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), 0);
        EXPECT_TRUE(world.run_until_listening(lan_port));
    }
    void close() {
        engr_lan_pro_cntl_exit();
        gateway::close();
    }
    upgrade_app connect() {
        upgrade_app app{story_app(world.connect(lan_port))};
        world.run_until_idle();
        return app;
    }
    /** Runs statements on the store of a closed gateway. */
    static void change_store(const char *sql) {
        sqlite3 *database = nullptr;
        sqlite3_open("gateway.db", &database);
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(database);
    }
    static std::string content(const char *name) {
        std::ifstream file(name, std::ios::binary);
        return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "no file";
    }

    std::filesystem::path directory;
};

TEST_F(upgrade_files, hold_the_image_byte_for_byte_and_the_version_lasts) {
    open();
    for (const offer &what : {image_of(1'000'000), image_of(5000, "lamp")}) {
        upgrade_app app = connect();
        app.offer_image(what);
        app.serve(what.bytes);
        ASSERT_TRUE(comes_to(world, {"installed"})) << upgrade_status();
        EXPECT_TRUE(content(what.cid.empty() ? "firmware-gateway.bin" : "firmware-device.bin") ==
                    what.bytes);
        world.run_for(1000);
    }
    close();
    open();
    EXPECT_EQ(version_of(""), "2.0.1");
    EXPECT_EQ(version_of("lamp"), "2.0.1");
    close();
}

TEST_F(upgrade_files, of_an_upgrade_that_was_cut_are_removed) {
    open(R"({"upgrade": {"install_ms": 100000}})");
    upgrade_app app = connect();
    app.offer_image({.version = "3"});
    app.serve("0123456789");
    EXPECT_TRUE(comes_to(world, {"installing"}));
    EXPECT_EQ(content("firmware.part"), "0123456789");
    const uint64_t before_ms = world.now_ms();
    close();
    EXPECT_LT(world.now_ms() - before_ms, 100U) << "expected the end not to wait";
    world.run_for(121'000); // the watchdog of the agent's upgrade outlives it
    EXPECT_EQ(content("firmware.part"), "no file");
    EXPECT_EQ(content("firmware-gateway.bin"), "no file");
    std::ofstream("firmware.part") << "left over";
    open();
    EXPECT_EQ(content("firmware.part"), "no file");
    EXPECT_EQ(version_of(""), "1.0.0");
    close();
}

TEST_F(upgrade_files, and_version_belong_together_after_a_kill_in_the_middle) {
    for (const bool image_is_in_place : {false, true}) {
        for (const std::string dev_id : {"", "lamp"}) {
            SCOPED_TRACE((image_is_in_place ? "in place " : "partial ") + dev_id);
            open();
            const std::string before = version_of(dev_id);
            close();
            const std::string setting =
                R"(INSERT INTO setting VALUES('firmware_installing', '{"dev_id":")" + dev_id +
                R"(","sw_ver":"9"}'))";
            change_store(setting.c_str());
            if (!image_is_in_place)
                std::ofstream("firmware.part") << "whole image";
            for (int starts = 0; starts < 2; ++starts) {
                open();
                EXPECT_EQ(version_of(dev_id), image_is_in_place ? "9" : before);
                EXPECT_EQ(content("firmware.part"), "no file");
                close();
            }
        }
    }
}

TEST_F(upgrade_files, that_cannot_be_made_are_a_refusal) {
    open();
    std::filesystem::create_directory("firmware.part");
    upgrade_app app = connect();
    app.offer_image({});
    EXPECT_EQ(app.app.receive_text(), "230/7/1/gw_lan_ug_cb error");
    EXPECT_EQ(upgrade_status()["reason"], "firmware.part cannot be made: Is a directory");
    std::filesystem::remove("firmware.part");
    std::filesystem::create_directories("firmware-gateway.bin/full");
    app.offer_image({});
    app.serve("0123456789");
    EXPECT_TRUE(comes_to(world, {"failed"}));
    EXPECT_EQ(upgrade_status()["reason"],
              "firmware-gateway.bin cannot be replaced: Is a directory");
    close();
    open();
    EXPECT_EQ(version_of(""), "1.0.0");
    close();
}

} // namespace
