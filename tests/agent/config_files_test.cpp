/* The files behind the configuration and log commands, and each way in which one fails. */
#include "command/config_files.h"
#include "story_gateway.h"

#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace {

struct config_files : agent_test {
    config_files() {
        std::string name = std::filesystem::temp_directory_path() / "engr_files_XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        directory = name;
        std::filesystem::current_path(directory);
    }
    ~config_files() override {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(directory);
    }

    std::filesystem::path directory;
};

TEST_F(config_files, tell_each_way_in_which_a_file_fails) {
    const auto *bytes = reinterpret_cast<const uint8_t *>("xyz");
    EXPECT_EQ(__lan_download_cfg(nullptr, bytes, 3), -1);
    EXPECT_EQ(__lan_download_cfg("file", nullptr, 3), -1);
    EXPECT_EQ(__lan_download_cfg("none/file", bytes, 3), -1);
    EXPECT_TRUE(world.log().has(0, "open error:No such file or directory"));
    EXPECT_EQ(__lan_download_cfg("/dev/full", bytes, 3), -1);
    EXPECT_TRUE(world.log().has(0, "write count:4294967295 len:3"));
    EXPECT_EQ(__lan_download_cfg("file", bytes, 3), 0);

    platform::heap_block<char> content;
    uint32_t length = 7;
    EXPECT_EQ(__read_log_file(nullptr, content, length), -2);
    EXPECT_EQ(__read_log_file("none", content, length), -1);
    world.fail("Malloc", sim::nth(1));
    EXPECT_EQ(__read_log_file("file", content, length), -3);
    EXPECT_EQ(length, 7U);
    EXPECT_EQ(__read_log_file(".", content, length), -1);
    EXPECT_FALSE(content);
    EXPECT_EQ(__read_log_file("file", content, length), 0);
    EXPECT_EQ(length, 3U);
    EXPECT_STREQ(content.get(), "xyz");
    __remove_log_file("./file");
    EXPECT_FALSE(std::filesystem::exists("file"));
}

TEST_F(config_files, are_written_and_closed_with_descriptor_0_too) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    EXPECT_EQ(__lan_download_cfg("file", reinterpret_cast<const uint8_t *>("xyz"), 3), 0);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "expected the file to be closed";
    dup2(input, STDIN_FILENO);
    close(input);
}

} // namespace
