// What lasts: everything that was told to a gateway, over a new start and from older versions.
#include "commissioned_gateway.h"

#include "gateway/config.h"
#include "gateway/group.h"
#include "gateway/scene.h"
#include "gateway_services/contents.h"
#include "gateway_services/error.h"

#include <nlohmann/json.hpp>
#include <sqlite3.h>
#include <sys/stat.h>

#include <fstream>

namespace {

constexpr const char *store_name = "gateway.db";

struct stored_gateway : sim::test {
    ~stored_gateway() override { gateway::close(); }

    void open(const char *site = commissioned_site) {
        gateway::close();
        gateway::open({.store_path = store_name,
                       .initial_site = gateway::parse_site(site, "site"),
                       .faults = {},
                       .trace = {},
                       .address = [] { return std::string("192.168.1.1"); }});
    }
    /** A scene of the group g, a panel with a button for it, and a linkage scene. */
    static void make_scenes() {
        const auto hand_over = commissioned_gateway::hand_over;
        hand_over(
            engr_sf_send_scene_oper_cmd,
            R"({"sid":"s","gid":"g","op":"save","actions":[{"cid":"lamp","dps":{"1":true}}]})");
        hand_over(engr_sf_send_scene_panel_cmd,
                  R"({"cid":"lamp","buttons":[{"button":1,"sid":"s","gid":"g"}]})");
        cJSON *set = cJSON_Parse(R"({"scenes":[{"sceneId":"1","name":"n","actions":[]}]})");
        engr_save_scene_link(1, -9, set);
        cJSON_Delete(set);
    }
    static void run_sql(const char *sql) {
        sqlite3 *database = nullptr;
        sqlite3_open(store_name, &database);
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql;
        sqlite3_close(database);
    }

    own_directory directory;
};

TEST_F(stored_gateway, keeps_all_that_it_was_told) {
    open();
    const auto hand_over = commissioned_gateway::hand_over;
    hand_over(engr_sf_send_gw_dev_cmd, R"({"cid":"lamp","dps":{"1":false}})");
    hand_over(engr_sf_send_gw_dev_cmd, R"({"dps":{"7":"own"}})");
    hand_over(engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"add","cids":["lamp"]})");
    make_scenes();
    engr_load_scene_info_from_disk();
    engr_gw_user_token_bind("token");
    gw_wifi_modify_and_conn("net", "pass");
    gw_set_channel(R"({"channel":11})", 14);
    wd_common_write("key", reinterpret_cast<const uint8_t *>("a\0b"), 3);
    const std::string binding = R"({"products":[{"cid":"bound","pid":"p"}]})";
    gw_engineer_add_sub_dev_to_list(binding.c_str(), static_cast<uint32_t>(binding.size()));
    engr_gw_unbind_device_inner(engr_get_dev_cntl("door"));
    gateway::set_device_field("bound", "online", "1");

    nlohmann::ordered_json before = gateway::status();
    open("{}");
    nlohmann::ordered_json after = gateway::status();
    EXPECT_FALSE(gateway::used_initial_site());
    for (const char *passing : {"wifi", "callbacks"}) { // what it does, not what it is
        before.erase(passing);
        after.erase(passing);
    }
    EXPECT_EQ(after.dump(), before.dump());
    EXPECT_EQ(commissioned_gateway::data_points("lamp"),
              R"({"cid":"lamp","dps":{"1":false,"2":5}})");
    EXPECT_EQ(commissioned_gateway::data_points("gw1"), R"({"cid":"gw1","dps":{"7":"own"}})");
    EXPECT_EQ(engr_get_dev_cntl("door"), nullptr);
    EXPECT_EQ(engr_get_dev_cntl("bound")->online, 1);
    EXPECT_EQ(scene_linkage_scene_exe("1"), 0) << "the set is loaded at the start";
    EXPECT_EQ(engr_get_gw_cntl()->scene_exec(2, "FFFFFFFFFFFFFFFF", "g", "s"), 0);
    EXPECT_STREQ(engr_get_gw_cntl()->wf_passwd, "pass");
}

TEST_F(stored_gateway, becomes_a_site_with_what_apps_made_of_it) {
    open();
    const auto hand_over = commissioned_gateway::hand_over;
    hand_over(engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"add","cids":["lamp","door"]})");
    hand_over(engr_sf_send_grp_oper_cmd, R"({"gid":"h","op":"add","cids":["door"]})");
    make_scenes();
    const std::string made = gateway::contents().dump();
    const std::string site = gateway::stored_site();
    gateway::close();
    std::filesystem::remove(store_name);
    open(site.c_str());
    EXPECT_TRUE(gateway::used_initial_site());
    EXPECT_EQ(gateway::contents().dump(), made);
    EXPECT_EQ(gateway::stored_site(), site);
    EXPECT_EQ(engr_get_gw_cntl()->scene_exec(2, "FFFFFFFFFFFFFFFF", "g", "s"), 0);
    EXPECT_EQ(scene_linkage_scene_exe("1"), 0) << "expected the linkage set to be loaded";
}

TEST_F(stored_gateway, of_the_first_version_is_taken_over) {
    run_sql(R"(CREATE TABLE gateway(name TEXT PRIMARY KEY, value) WITHOUT ROWID;
        CREATE TABLE device(position INTEGER PRIMARY KEY, dev_id TEXT NOT NULL UNIQUE, sw_ver TEXT,
                            pid TEXT, state INTEGER, online INTEGER, excluded INTEGER,
                            dps TEXT NOT NULL);
        CREATE TABLE setting(name TEXT PRIMARY KEY, value BLOB NOT NULL) WITHOUT ROWID;
        INSERT INTO gateway VALUES('gw_id', 'old');
        INSERT INTO device(dev_id, state, online, dps) VALUES('lamp', 1, 1, '{"1":9}');
        PRAGMA user_version=1;)");
    open();
    EXPECT_STREQ(engr_get_gw_cntl()->gw_id, "old");
    EXPECT_EQ(commissioned_gateway::data_points("lamp"), R"({"cid":"lamp","dps":{"1":9}})");
    commissioned_gateway::hand_over(engr_sf_send_grp_oper_cmd,
                                    R"({"gid":"g","op":"add","cids":["lamp"]})");
    open();
    EXPECT_EQ(gateway::status()["groups"].dump(), R"({"g":1})");
}

TEST_F(stored_gateway, keeps_what_its_site_says_of_products) {
    const auto command = [](const char *dps) {
        return commissioned_gateway::hand_over(
            engr_sf_send_gw_dev_cmd, (R"({"cid":"a","dps":)" + std::string(dps) + "}").c_str());
    };
    open(R"({"products": {"p": {"1": {"kind": "bool"}}},
             "devices": [{"dev_id": "a", "pid": "p", "online": 1}]})");
    open("{}");
    EXPECT_EQ(command(R"({"1":true})"), 0);
    EXPECT_NE(command(R"({"1":"on"})"), 0);
    gateway::close();
    run_sql("UPDATE setting SET value='{\"p\":7}' WHERE name='products'");
    EXPECT_THROW(open(), gateway::refused);
}

TEST_F(stored_gateway, that_cannot_be_right_is_refused) {
    open();
    gateway::close();
    for (const char *change :
         {"UPDATE gateway SET value=300 WHERE name='channel'", "PRAGMA user_version=99"}) {
        run_sql(change);
        EXPECT_THROW(open(), gateway::refused) << change;
    }
}

TEST_F(stored_gateway, writes_nothing_at_a_start_that_needs_no_write) {
    open();
    gateway::close();
    const auto before = std::filesystem::last_write_time(store_name);
    run_sql("CREATE TRIGGER unwanted BEFORE INSERT ON setting BEGIN SELECT RAISE(ABORT, 'no'); END;"
            "PRAGMA wal_checkpoint(TRUNCATE)");
    const auto written = std::filesystem::last_write_time(store_name);
    open();
    EXPECT_EQ(std::filesystem::file_size(std::string(store_name) + "-wal"), 0U);
    gateway::close();
    EXPECT_EQ(std::filesystem::last_write_time(store_name), written);
    EXPECT_LE(before, written);
}

TEST_F(stored_gateway, brings_a_configuration_back_that_was_cut_and_refuses_what_it_would_follow) {
    const auto content = [](const char *name) {
        std::ifstream file(name, std::ios::binary);
        return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "no file";
    };
    const auto write = [](const char *name, const char *text) { std::ofstream(name) << text; };
    /** Opens a gateway on what a kill has left. */
    const auto kill_and_open = [&] {
        const own_directory killed_here;
        std::filesystem::copy(directory.path(), ".");
        std::filesystem::current_path(directory.path());
        gateway::close();
        std::filesystem::current_path(killed_here.path());
        open();
        const std::string left = content("app.config");
        gateway::close();
        std::filesystem::current_path(directory.path());
        open();
        return left;
    };
    open();
    write("app.config", R"({"a":1})");
    EXPECT_STREQ(get_config_path(), "./"); // the agent begins the next command
    for (const char *cut : {"", R"({"b")"}) {
        write("app.config", cut);
        EXPECT_EQ(kill_and_open(), R"({"a":1})") << cut;
        write("app.config", R"({"a":1})");
        get_config_path();
    }
    write("app.config", R"({"b":2})");
    EXPECT_EQ(kill_and_open(), R"({"b":2})") << "expected a whole one to stay";
    write("app.config", "as it is");
    gateway::close();
    open();
    EXPECT_EQ(content("app.config"), "as it is") << "no push was under way";

    write("target", "of somebody else");
    std::filesystem::remove("app.config");
    std::filesystem::create_symlink("target", "app.config");
    ASSERT_EQ(mkfifo("cloud.config", 0600), 0);
    EXPECT_STREQ(get_config_path(), "./");
    EXPECT_EQ(content("app.config"), "no file");
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status("cloud.config")));
    std::filesystem::create_symlink("target", "gateway.link");
    EXPECT_THROW(
        {
            gateway::close();
            gateway::open_options options;
            options.store_path = "gateway.link";
            gateway::open(std::move(options));
        },
        gateway::refused);
}

TEST_F(stored_gateway, changes_nothing_in_memory_when_it_cannot_be_written) {
    open();
    run_sql("SELECT 1");
    gateway::close();
    run_sql(
        "CREATE TRIGGER broken BEFORE UPDATE ON device BEGIN SELECT RAISE(ABORT, 'no'); END;"
        "CREATE TRIGGER full BEFORE INSERT ON group_member BEGIN SELECT RAISE(ABORT, 'no'); END;");
    open();
    const std::string before = gateway::status().dump();
    EXPECT_NE(commissioned_gateway::hand_over(engr_sf_send_gw_dev_cmd,
                                              R"({"cid":"lamp","dps":{"1":false}})"),
              0);
    const std::string binding =
        R"({"products":[{"cid":"new","pid":"p"},{"cid":"lamp","pid":"q"}]})";
    EXPECT_NE(
        gw_engineer_add_sub_dev_to_list(binding.c_str(), static_cast<uint32_t>(binding.size())), 0);
    commissioned_gateway::hand_over(engr_sf_send_grp_oper_cmd,
                                    R"({"gid":"g","op":"add","cids":["lamp"]})");
    EXPECT_EQ(gateway::status().dump(), before);
    EXPECT_EQ(commissioned_gateway::data_points("lamp"),
              R"({"cid":"lamp","dps":{"1":true,"2":5}})");
}

} // namespace
