/* The files behind the configuration and log commands, and each way in which one fails. */
#include "command/config_files.h"
#include "story_gateway.h"
#include "transport/frame_types.h"

#include <gmock/gmock.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

namespace {

struct config_files : agent_test {
    working_directory directory;
};

TEST_F(config_files, report_each_failure_of_a_download) {
    const auto *bytes = reinterpret_cast<const uint8_t *>("xyz");
    EXPECT_EQ(__lan_download_cfg(nullptr, bytes, 3), -1);
    EXPECT_EQ(__lan_download_cfg("file", nullptr, 3), -1);
    EXPECT_EQ(__lan_download_cfg("none/file", bytes, 3), -1);
    EXPECT_TRUE(world.log().has(0, "open error:No such file or directory"));
    EXPECT_EQ(__lan_download_cfg("/dev/full", bytes, 3), -1);
    EXPECT_TRUE(world.log().has(0, "write count:4294967295 len:3"));
    world.fail("engr_file_write", sim::nth(1), {.partial_bytes = 2});
    EXPECT_EQ(__lan_download_cfg("file", bytes, 3), -1);
    EXPECT_TRUE(world.log().has(0, "write count:2 len:3"));
    EXPECT_EQ(std::filesystem::file_size("file"), 2U) << "expected what was written to stay";
    EXPECT_EQ(__lan_download_cfg("file", bytes, 3), 0);
    EXPECT_EQ(std::filesystem::file_size("file"), 3U);
}

TEST_F(config_files, report_each_failure_of_a_log_upload) {
    std::ofstream("file") << "xyz";
    platform::heap_block<char> content;
    uint32_t length = 7;
    EXPECT_EQ(__read_log_file(nullptr, content, length), -2);
    EXPECT_EQ(__read_log_file("none", content, length), -1);
    EXPECT_TRUE(world.log().has(0, "stat file error:No such file or directory"));
    world.fail("Malloc", sim::nth(1));
    EXPECT_EQ(__read_log_file("file", content, length), -3);
    EXPECT_EQ(length, 7U);
    for (const uint64_t size : {uint64_t{INT32_MAX}, uint64_t{1} << 32U}) {
        std::filesystem::resize_file("file", size); // a hole: takes no room
        EXPECT_EQ(__read_log_file("file", content, length), -3) << "expected no such block";
    }
    std::filesystem::resize_file("file", INT32_MAX - 1);
    world.fail("Malloc", sim::nth(1)); // is tried
    EXPECT_EQ(__read_log_file("file", content, length), -3);
    EXPECT_EQ(length, 7U);
    std::filesystem::resize_file("file", 3);
    world.fail("engr_file_open", sim::nth(1));
    EXPECT_EQ(__read_log_file("file", content, length), -1);
    EXPECT_TRUE(world.log().has(0, "open error Input/output error"));
    EXPECT_EQ(__read_log_file(".", content, length), -1);
    world.fail("engr_file_read", sim::nth(1), {.partial_bytes = 2});
    EXPECT_EQ(__read_log_file("file", content, length), -1);
    EXPECT_TRUE(world.log().has(0, "read file:file error, count:2 st_size:3"));
    EXPECT_FALSE(content);
    EXPECT_EQ(__read_log_file("file", content, length), 0);
    EXPECT_EQ(length, 3U);
    EXPECT_STREQ(content.get(), "xyz");
    __remove_log_file("./file");
    EXPECT_FALSE(std::filesystem::exists("file"));
}

/** Writes a log of so many bytes to upload.log and returns them. */
std::string write_log(size_t size) {
    std::string text;
    while (text.size() < size) {
        text += "line " + std::to_string(text.size()) + '\n';
    }
    text.resize(size);
    std::ofstream("upload.log", std::ios::binary) << text;
    return text;
}

const char *log_path;

int32_t give_log_path(char *path, uint32_t size) {
    EXPECT_EQ(size, 64U);
    std::strncpy(path, log_path, size);
    return 0;
}

TEST_F(config_files, of_the_log_are_sent_whole_and_removed_and_stay_when_they_cannot_be_read) {
    gateway.start();
    story_app app = gateway.connect();
    gw_cntl_t &record = *engr_get_gw_cntl();
    record.get_log_path = nullptr;
    EXPECT_EQ(app.ask(FRM_GET_LOG), "254/7/1/read log error");
    record.get_log_path = [](char *, uint32_t) { return int32_t{-1}; };
    EXPECT_EQ(app.ask(FRM_GET_LOG), "254/7/1/read log error");
    record.get_log_path = give_log_path;
    for (const char *unreadable : {"./none.log", "."}) {
        log_path = unreadable;
        EXPECT_EQ(app.ask(FRM_GET_LOG), "254/7/1/read log error");
    }
    EXPECT_TRUE(world.log().has(0, "read file:. error, count:4294967295 st_size:"));
    log_path = "./upload.log";
    write_log(100);
    world.fail("Malloc", sim::nth(1));
    EXPECT_EQ(app.ask(FRM_GET_LOG), "254/7/1/read log error");
    EXPECT_TRUE(world.log().has(0, "malloc error:"));
    EXPECT_TRUE(std::filesystem::exists("upload.log")) << "expected an unread log to stay";
    for (const size_t size : {size_t{2049}, size_t{1024}, size_t{0}}) {
        SCOPED_TRACE(size);
        const std::string text = write_log(size);
        world.log().clear();
        app.send(9, FRM_GET_LOG);
        std::string received;
        int32_t number = 0;
        while (const auto frame = app.receive(1'000)) {
            ASSERT_TRUE(frame->segment) << "expected segments";
            EXPECT_EQ(frame->segment->number, ++number);
            EXPECT_EQ(frame->segment->count, static_cast<int32_t>(size / 1024 + 1));
            EXPECT_EQ(frame->number, 9U);
            EXPECT_EQ(frame->ret, 0U);
            received += frame->payload;
        }
        EXPECT_EQ(received, text) << "expected the log as it is, not encrypted";
        EXPECT_TRUE(world.log().has(4, "begin to send log,file len:" + std::to_string(size)));
        EXPECT_TRUE(world.log().has(4, "remove log file cmd:rm -rf ./upload.log"));
        EXPECT_FALSE(std::filesystem::exists("upload.log"));
    }
    write_log(5000);
    app.send(9, FRM_GET_LOG);
    world.run_for(350);
    app.peer.reset();
    world.run_for(3'000);
    EXPECT_FALSE(std::filesystem::exists("upload.log"))
        << "expected a log whose upload failed to be gone, too";
}

/** Pushes both configurations and downloads the log. */
void use_files(sim::world &world) {
    const std::set<std::string> expected[] = {
        {"246/7/0/", "246/7/1/download app config error"},
        {"245/7/0/", "245/7/1/download cloud config error"},
        {"segment", "254/7/1/read log error"},
    };
    story_gateway gateway(world);
    engr_get_gw_cntl()->get_log_path = give_log_path;
    log_path = "./upload.log";
    const std::string log = write_log(100);
    gateway.start();
    story_app app = gateway.connect();
    EXPECT_THAT(expected[0], testing::Contains(app.ask(FRM_DOWNLOAD_APP_CFG, "{}", true)));
    EXPECT_THAT(expected[1], testing::Contains(app.ask(FRM_DOWNLOAD_CLOUD_CFG, "{}", true)));
    app.send(7, FRM_GET_LOG);
    const auto answer = app.receive();
    ASSERT_TRUE(answer) << "expected an answer to a log download";
    EXPECT_TRUE(answer->segment ? answer->payload == log : answer->ret == 1);
    world.run_for(1'000);
    EXPECT_EQ(world.in_use().files, 0U) << "expected every file to be closed";
    app.send(8, FRM_KEEPALIVE);
    EXPECT_TRUE(app.receive()) << "expected the agent to serve on";
}

TEST(files, a_failing_call_fails_only_its_own_command) {
    working_directory directory;
    for (const char *operation : {"engr_file_create", "engr_file_write", "engr_file_size",
                                  "engr_file_open", "engr_file_read", "engr_file_remove"}) {
        for (const bool lasting : {false, true}) {
            SCOPED_TRACE(lasting ? "and all later calls" : "alone");
            sim::expect_survives_each_failure(operation, use_files, {.lasting = lasting});
        }
    }
}

} // namespace
