// Images on the disk: what is there after an upgrade, a failure, and a kill at a bad moment.
#include "commissioned_gateway.h"
#include "upgrade_story.h"

#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

/** Lets the process open no further file while it lives. */
class no_descriptors {
  public:
    no_descriptors() {
        getrlimit(RLIMIT_NOFILE, &old_);
        const int lowest = dup(0);
        ::close(lowest);
        const rlimit none{static_cast<rlim_t>(lowest), old_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    no_descriptors(const no_descriptors &) = delete;
    ~no_descriptors() { setrlimit(RLIMIT_NOFILE, &old_); }

  private:
    rlimit old_{};
};

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
            if (!image_is_in_place) {
                std::ofstream("firmware.part") << "whole image";
            }
            for (int starts = 0; starts < 2; ++starts) {
                open();
                EXPECT_EQ(version_of(dev_id), image_is_in_place ? "9" : before);
                EXPECT_EQ(content("firmware.part"), "no file");
                close();
            }
        }
    }
}

TEST_F(upgrade_files, and_version_are_settled_before_the_next_image_is_received) {
    if (sim::is_sanitized) {
        GTEST_SKIP() << "the sanitizer needs descriptors of its own";
    }
    for (const std::string dev_id : {"", "lamp"}) {
        SCOPED_TRACE(dev_id);
        open();
        upgrade_app app = connect();
        app.offer_image({.version = "3", .cid = dev_id});
        app.serve("0123456789");
        EXPECT_TRUE(comes_to(world, {"installing"}));
        {
            const no_descriptors none; // the directory cannot be opened to be flushed
            EXPECT_TRUE(comes_to(world, {"failed"}));
        }
        EXPECT_EQ(upgrade_status()["reason"],
                  "the data directory cannot be flushed: Too many open files");
        const char *image = dev_id.empty() ? "firmware-gateway.bin" : "firmware-device.bin";
        EXPECT_EQ(content(image), "0123456789");
        world.run_for(1000);
        app.offer_image(image_of(5000, dev_id));
        EXPECT_TRUE(comes_to(world, {"receiving"}));
        EXPECT_EQ(version_of(dev_id), "3");
        const own_directory killed_here; // what a kill would leave
        std::filesystem::copy(directory, ".");
        EXPECT_NE(content("firmware.part"), "no file");
        std::filesystem::current_path(directory);
        close();
        world.run_for(121'000); // the watchdog of the agent's upgrade outlives it
        std::filesystem::current_path(killed_here.path());
        open();
        EXPECT_EQ(version_of(dev_id), "3") << "expected the version of the image that is in place";
        EXPECT_EQ(content(image), "0123456789");
        close();
        std::filesystem::current_path(directory);
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
