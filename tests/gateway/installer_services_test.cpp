// Joining, token, Wi-Fi, channel, configuration, log and deactivation, as the agent uses them.
#include "commissioned_gateway.h"

#include "gateway/config.h"
#include "gateway_services/error.h"

#include <sys/stat.h>

#include <fstream>

namespace {

/** Writes a file of the working directory. */
void write_file(const std::string &name, std::string_view content) {
    std::ofstream(name, std::ios::binary) << content;
}

struct installer_services : commissioned_gateway {
    static int32_t permit_join(bool enable, uint32_t time_s) {
        return engr_get_gw_cntl()->permit_join(4, enable, time_s);
    }
    static int32_t set_channel(const std::string &text) {
        return gw_set_channel(text.c_str(), static_cast<uint32_t>(text.size()));
    }
    static int32_t write_setting(const char *key, std::string_view value) {
        return wd_common_write(key, reinterpret_cast<const uint8_t *>(value.data()),
                               static_cast<uint32_t>(value.size()));
    }
};

TEST_F(installer_services, devices_join_one_after_the_other_while_joining_is_open) {
    world.run_for(10'000);
    EXPECT_EQ(shown("devices"), 2) << "joining is closed at first";
    EXPECT_EQ(permit_join(true, 4), 1);
    EXPECT_EQ(shown("joining").dump(), R"({"open":true,"kind":4,"seconds_left":4,"waiting":2})");
    world.run_for(2499);
    EXPECT_EQ(shown("devices"), 2);
    world.run_for(1);
    EXPECT_EQ(told(), R"(243/0/0/{"products":[{"cid":"new1","pid":"n"}]})");
    EXPECT_EQ(engr_get_dev_cntl("new1")->state, uint32_t{DEV_STATE_BOUND});
    EXPECT_EQ(engr_get_dev_cntl("new1")->online, 1);
    EXPECT_EQ(data_points("new1"), R"({"cid":"new1","dps":{"1":1}})");
    world.run_for(10'000);
    EXPECT_EQ(shown("joining").dump(), R"({"open":false,"kind":4,"seconds_left":0,"waiting":1})")
        << "it closed before the second device was due";
    permit_join(true, 4'000'000'000);
    world.jump_posix(-1'000'000);
    world.run_for(2500);
    EXPECT_EQ(told(), R"(243/0/0/{"products":[{"cid":"new2","pid":""}]})");
    EXPECT_EQ(permit_join(false, 0), 1);
    EXPECT_EQ(shown("joining")["open"], false);
    engr_gw_unbind_device_inner(engr_get_dev_cntl("new1"));
    EXPECT_EQ(shown("joining")["waiting"], 1) << "a device that was removed may join again";
}

TEST_F(installer_services, a_device_that_was_bound_first_comes_online_with_its_data_points) {
    EXPECT_EQ(bind(R"([{"cid":"new1","pid":"p"},{"cid":"early","pid":"p"}])"), 0);
    told();
    told();
    EXPECT_EQ(engr_get_dev_cntl("new1")->online, 0);
    EXPECT_EQ(data_points("new1"), "none");
    gateway::set_gateway_field("gw_id", "new2"); // which then never joins, and holds nobody up
    EXPECT_EQ(shown("joining")["waiting"], 1);
    EXPECT_EQ(permit_join(true, 60), 1);
    world.run_for(2500);
    EXPECT_EQ(told(), R"(243/0/0/{"products":[{"cid":"new1","pid":"n"}]})");
    EXPECT_EQ(engr_get_dev_cntl("new1")->online, 1);
    EXPECT_STREQ(engr_get_dev_cntl("new1")->pid, "n") << "the device knows its product";
    EXPECT_EQ(data_points("new1"), R"({"cid":"new1","dps":{"1":1}})");
    EXPECT_EQ(shown("devices"), 4);
    gateway::set_device_field("new1", "online", "0");
    world.run_for(10'000);
    EXPECT_EQ(told(), "nothing") << "it has joined, and is offline since";
    EXPECT_THROW(gateway::join_device("new1", std::nullopt), gateway::refused);
    gateway::join_device("early", std::nullopt);
    EXPECT_EQ(told(), R"(243/0/0/{"products":[{"cid":"early","pid":"p"}]})");
    EXPECT_EQ(engr_get_dev_cntl("early")->online, 1);
    EXPECT_THROW(gateway::join_device("new2", "p"), gateway::refused) << "the gateway itself";
}

TEST_F(installer_services, a_device_is_made_to_join_only_while_joining_is_open) {
    EXPECT_THROW(gateway::join_device("x", "p"), gateway::refused);
    permit_join(true, 60);
    EXPECT_THROW(gateway::join_device("lamp", std::nullopt), gateway::refused);
    EXPECT_THROW(gateway::join_device("a\"b", std::nullopt), gateway::usage_error);
    gateway::join_device("x", "p");
    EXPECT_EQ(told(), R"(243/0/0/{"products":[{"cid":"x","pid":"p"}]})");
    gateway::join_device("new2", "q");
    EXPECT_EQ(told(), R"(243/0/0/{"products":[{"cid":"new2","pid":"q"}]})");
}

TEST_F(installer_services, joining_stays_closed_without_a_timer) {
    for (const char *operation : {"sys_add_timer", "sys_start_timer"}) {
        world.fail(operation, sim::nth(1));
        EXPECT_EQ(permit_join(true, 60), 0) << operation;
        EXPECT_EQ(shown("joining")["open"], false) << operation;
    }
    EXPECT_EQ(permit_join(true, 60), 1);
}

TEST_F(installer_services, wrong_values_are_refused_without_a_change) {
    EXPECT_EQ(engr_gw_user_token_bind("secret"), 0);
    EXPECT_EQ(gw_wifi_modify_and_conn("net", nullptr), 0);
    EXPECT_EQ(set_channel(R"({"channel":26})"), 0);
    const nlohmann::ordered_json before = gateway::status();
    EXPECT_EQ(before.dump().find("secret"), std::string::npos) << "the token is never shown";
    EXPECT_EQ(before["token_bound"], true);
    EXPECT_EQ(before["gateway"]["wf_ssid"], "net");
    EXPECT_EQ(before["wifi"]["ssid"], "net");
    for (const std::string &token : {std::string(), std::string(65, 'x'), std::string("a\nb")}) {
        EXPECT_NE(engr_gw_user_token_bind(token.c_str()), 0) << token;
    }
    EXPECT_NE(gw_wifi_modify_and_conn("", "p"), 0);
    EXPECT_NE(gw_wifi_modify_and_conn(std::string(33, 's').c_str(), "p"), 0);
    EXPECT_NE(gw_wifi_modify_and_conn("other", std::string(65, 'p').c_str()), 0);
    for (const char *channel : {R"({"channel":10})", R"({"channel":27})", R"({"channel":15.5})",
                                R"({"channel":"15"})", "{}", "15", R"({"channel":1e99})", "{"}) {
        EXPECT_NE(set_channel(channel), 0) << channel;
    }
    EXPECT_NE(write_setting("", "v"), 0);
    EXPECT_NE(write_setting("k", std::string(65'537, 'v')), 0);
    EXPECT_EQ(gateway::status().dump(), before.dump());
    int32_t channel = 0;
    EXPECT_EQ(gw_get_channel(&channel), 0);
    EXPECT_EQ(channel, 26);
}

/** The agent reads no request for a channel itself, and so bounds none. */
TEST_F(installer_services, a_request_with_very_many_values_is_refused) {
    std::string values = R"({"channel":15,"others":[0)";
    for (int more = 4; more < 65'536; ++more) {
        values += ",0";
    }
    EXPECT_EQ(set_channel(values + "]}"), 0) << "65,536 are taken";
    EXPECT_NE(set_channel(values + ",0]}"), 0);
}

TEST_F(installer_services, configuration_is_taken_over_as_the_file_stands) {
    EXPECT_STREQ(get_config_path(), "./");
    EXPECT_NE(gw_engineer_sync_default_config(), 0) << "there is no file yet";
    write_file("cloud.config", "{cut");
    EXPECT_NE(gw_engineer_sync_default_config(), 0);
    EXPECT_TRUE(world.log().has(0, "cloud.config is not taken over: it is not JSON"));
    EXPECT_TRUE(shown("config")["taken_over"].is_null());
    write_file("cloud.config", "[1]");
    for (const auto take_over :
         {engr_get_gw_cntl()->sync_config, gw_engineer_sync_default_config}) {
        EXPECT_EQ(take_over(), 0);
    }
    const auto taken = shown("config")["taken_over"];
    EXPECT_EQ(taken["md5"], "35dba5d75538a9bbe0b4da4422759a0e");
    EXPECT_EQ(taken["bytes"], 3);
    EXPECT_EQ(taken["posix_s"], world.posix_s());

    char *text = nullptr;
    EXPECT_EQ(gw_read_file("./cloud.config", &text), 0);
    EXPECT_STREQ(text, "[1]");
    std::free(text);
    std::filesystem::create_symlink("cloud.config", "link");
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const char *path : {"./app.config", "./", "/dev/zero", "link", "pipe"}) {
        EXPECT_NE(gw_read_file(path, &text), 0) << path;
    }
    EXPECT_EQ(write_setting("engineer_stat", std::string_view("1", 2)), 0);
    EXPECT_EQ(gateway.trace.back(),
              R"({"call": "wd_common_write", "args": )"
              R"({"key": "engineer_stat", "value": "1\u0000"}, "result": 0})");
    EXPECT_EQ(shown("settings").dump(), R"({"engineer_stat":"1"})");
}

TEST_F(installer_services, deactivation_forgets_the_installer_and_keeps_the_devices) {
    engr_gw_user_token_bind("t");
    write_setting("engineer_stat", std::string_view("1", 2));
    write_setting("other", "x");
    permit_join(true, 60);
    const uint8_t reset_type = GW_RESET_BY_APP;
    EXPECT_EQ(engr_gw_unactive(&reset_type), 0);
    EXPECT_EQ(gateway.trace.back(),
              R"({"call": "engr_gw_unactive", "args": {"reset_type": 2}, "result": 0})");
    EXPECT_EQ(shown("token_bound"), false);
    EXPECT_EQ(shown("joining")["open"], false);
    EXPECT_EQ(shown("settings").dump(), R"({"other":"x"})");
    EXPECT_EQ(shown("devices"), 2);
    EXPECT_EQ(told(), "nothing") << "the app that asked gets its answer, nobody a notice";
}

/** Opens a gateway whose log is one line. */
struct log_snapshots : sim::test {
    log_snapshots() {
        write_file("upload-0007.log", "never taken");
        write_file("upload-7.logs", "a file of somebody else");
        gateway::open_options options;
        options.newest_log = [this](size_t bytes_max) {
            if (!works) {
                throw gateway::refused("no log");
            }
            return log.substr(log.size() - std::min(log.size(), bytes_max));
        };
        gateway::open(std::move(options));
    }
    ~log_snapshots() override { gateway::close(); }

    static std::string next_path(uint32_t size = 64) {
        char path[65] = {};
        return engr_get_gw_cntl()->get_log_path(path, size) == 0 ? path : "refused";
    }
    static std::vector<std::string> files() {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(".")) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    own_directory directory;
    bool works = true;
    std::string log = "line\n";
};

TEST_F(log_snapshots, are_the_newest_whole_lines_of_at_most_96_kib) {
    constexpr size_t most = 96 * 1024;
    const std::string lines(most - 6, 'x');
    const struct {
        std::string log;
        std::string handed_out;
    } logs[] = {
        {"", ""},
        {"old\n" + lines + "\nlast\n", lines + "\nlast\n"},
        {"older\nold\n" + lines.substr(1) + "\nlast\n", lines.substr(1) + "\nlast\n"},
        {"old\n" + lines + "x\nlast\n", "last\n"},
    };
    for (const auto &each : logs) {
        log = each.log;
        const std::string path = next_path();
        std::ifstream file(path, std::ios::binary);
        EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(file), {}) == each.handed_out)
            << "expected " << each.handed_out.size() << " bytes";
    }
    EXPECT_EQ(gateway::status()["log"]["upload_bytes_max"], most);
}

TEST_F(log_snapshots, are_fresh_files_of_which_one_is_kept) {
    EXPECT_THAT(files(), testing::UnorderedElementsAre("upload-7.logs"));
    EXPECT_EQ(next_path(), "upload-0001.log");
    EXPECT_EQ(next_path(), "upload-0002.log");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("upload-7.logs", "upload-0002.log"));
    EXPECT_EQ(next_path(8), "refused") << "the path does not fit";
    works = false;
    EXPECT_EQ(next_path(), "refused");
    EXPECT_EQ(files().size(), 1U) << "nothing half written is left";
}

} // namespace
