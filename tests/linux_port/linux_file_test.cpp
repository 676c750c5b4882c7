// Files of the Linux port, beyond what every port promises: no started program inherits one, and
// the reason of a failure is the system's.
#include "platform/file.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <filesystem>

TEST(linux_file, is_not_inherited_by_a_started_program) {
    const int32_t file = engr_file_open("/dev/null");
    EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC);
    engr_file_close(file);
}

TEST(linux_file, says_why_a_call_failed) {
    const std::string directory = std::filesystem::temp_directory_path();
    EXPECT_EQ(engr_file_open((directory + "/no such file").c_str()), -1);
    EXPECT_STREQ(engr_file_error(), "No such file or directory");
    EXPECT_EQ(engr_file_create(directory.c_str()), -1);
    EXPECT_STREQ(engr_file_error(), "Is a directory");
    const int32_t full = engr_file_create("/dev/full");
    EXPECT_EQ(engr_file_write(full, "x", 1), -1);
    EXPECT_STREQ(engr_file_error(), "No space left on device");
    engr_file_close(full);
}
