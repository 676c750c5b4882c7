// Files of the Linux port: bytes go through unchanged, and each failure has its result and text.
#include "platform/file.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>

namespace {

struct linux_file : testing::Test {
    linux_file() {
        std::string name = std::filesystem::temp_directory_path() / "engr_file_XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        directory = name;
        path = name + "/file";
    }
    ~linux_file() override { std::filesystem::remove_all(directory); }

    std::string directory;
    std::string path;
};

TEST_F(linux_file, returns_what_was_written_and_is_emptied_when_created_again) {
    const mode_t mask = umask(0);
    int32_t file = engr_file_create(path.c_str());
    umask(mask);
    ASSERT_GE(file, 0);
    EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC) << "expected no started program to inherit it";
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0755));
    EXPECT_EQ(engr_file_write(file, "", 0), 0);
    EXPECT_EQ(engr_file_write(file, "ab\0", 3), 3);
    EXPECT_EQ(engr_file_write(file, "cd", 2), 2);
    engr_file_close(file);
    uint64_t bytes = 0;
    EXPECT_EQ(engr_file_size(path.c_str(), &bytes), 0);
    EXPECT_EQ(bytes, 5U);

    file = engr_file_open(path.c_str());
    ASSERT_GE(file, 0);
    char buffer[8] = {};
    EXPECT_EQ(engr_file_read(file, buffer, 2), 2);
    EXPECT_EQ(engr_file_read(file, buffer + 2, 6), 3) << "expected fewer bytes at the end";
    EXPECT_EQ(std::string(buffer, 5), std::string("ab\0cd", 5));
    EXPECT_EQ(engr_file_read(file, buffer, 1), 0);
    engr_file_close(file);

    file = engr_file_create(path.c_str());
    engr_file_close(file);
    EXPECT_EQ(std::filesystem::file_size(path), 0U);
    EXPECT_EQ(engr_file_remove(path.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(linux_file, says_why_a_call_failed) {
    uint64_t bytes = 7;
    EXPECT_EQ(engr_file_open(path.c_str()), -1);
    EXPECT_STREQ(engr_file_error(), "No such file or directory");
    EXPECT_EQ(engr_file_size(path.c_str(), &bytes), -1);
    EXPECT_EQ(bytes, 7U) << "expected it to be unchanged";
    EXPECT_EQ(engr_file_remove(path.c_str()), -1);
    EXPECT_EQ(engr_file_create(directory.c_str()), -1);
    EXPECT_STREQ(engr_file_error(), "Is a directory");
    const int32_t full = engr_file_create("/dev/full");
    EXPECT_EQ(engr_file_write(full, "x", 1), -1);
    EXPECT_STREQ(engr_file_error(), "No space left on device");
    engr_file_close(full);
    char buffer[1];
    const int32_t opened = engr_file_open(directory.c_str());
    EXPECT_EQ(engr_file_read(opened, buffer, 1), -1);
    engr_file_close(opened);
}

} // namespace
