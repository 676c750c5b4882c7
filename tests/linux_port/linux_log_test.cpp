// The lines that the Linux port's log hands to a program.
#include "linux_port/port.h"
#include "platform/log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

class linux_log : public testing::Test {
  protected:
    void SetUp() override {
        linux_port::set_log_sink([this](int level, std::string_view line) {
            levels.push_back(level);
            lines.emplace_back(line);
        });
    }
    void TearDown() override {
        linux_port::set_log_sink({});
        linux_port::set_log_level(2);
    }

    /** The message part of the line that a text becomes. */
    std::string message_of(const std::string &text) {
        lines.clear();
        PrintLog(0, 0, "f", 1, "g", "%s", text.c_str());
        return lines.size() == 1 ? lines[0].substr(lines[0].find(" g ") + 3) : "not one line";
    }

    std::vector<int> levels;
    std::vector<std::string> lines;
};

} // namespace

TEST_F(linux_log, a_line_tells_time_level_place_and_message) {
    PrintLog(0, 1, "/some/where/file.cpp", 42, "function", "%d of %s", 7, "nine");
    ASSERT_EQ(lines.size(), 1u);
    std::string shape = lines[0];
    std::replace_if(
        shape.begin(), shape.end(), [](char c) { return c >= '0' && c <= '9'; }, '9');
    EXPECT_EQ(shape, "9999-99-99T99:99:99.999Z 9 file.cpp:99 function 9 of nine") << lines[0];
    EXPECT_NE(lines[0].find("Z 1 file.cpp:42 function 7 of nine"), std::string::npos);
    EXPECT_EQ(levels, std::vector<int>{1});
}

TEST_F(linux_log, the_graver_levels_show_no_secret_of_a_request) {
    EXPECT_EQ(message_of(R"(fails -1 {"ssid":"s","PassWd" : "a\"b","type":1})"),
              R"(fails -1 {"ssid":"s","PassWd" :***,"type":1})");
    EXPECT_EQ(message_of(R"({"token":"never closed)"), R"({"token":***)");
    EXPECT_EQ(message_of(R"({"token":12,"local_key":)"), R"({"token":***,"local_key":***)");
    EXPECT_EQ(message_of(R"(the "token" is "passwd")"), R"(the "token" is "passwd")");
    linux_port::set_log_level(5);
    PrintLog(0, 4, "f", 1, "g", R"({"token":"t"})");
    EXPECT_NE(lines.back().find(R"({"token":"t"})"), std::string::npos);
}

TEST_F(linux_log, control_characters_are_dropped_at_the_end_and_visible_inside) {
    EXPECT_EQ(message_of("cur_net:0\r\n"), "cur_net:0");
    EXPECT_EQ(message_of("forged\n2026 0 line"), "forged\\n2026 0 line");
    EXPECT_EQ(message_of("\x1b[2J tab\t del\x7f."), "\\x1b[2J tab\\t del\\x7f.");
    EXPECT_EQ(message_of("\xC2\x9B"
                         "2J \xC3\x9C"),
              "\\xc2\\x9b2J \xC3\x9C")
        << "control characters of eight bits are made visible, letters are not";
    EXPECT_EQ(message_of(""), "");
}

TEST_F(linux_log, long_messages_are_kept_whole_up_to_a_bound) {
    for (const size_t length : {511u, 512u, 513u, 65536u}) {
        EXPECT_EQ(message_of(std::string(length, 'x')), std::string(length, 'x'));
    }
    const std::string cut = message_of(std::string(3'000'000, 'x'));
    EXPECT_EQ(cut, std::string(65536, 'x') + "...");
}

TEST_F(linux_log, lines_above_the_level_are_dropped) {
    for (const int highest : {2, 5, 0}) {
        lines.clear();
        linux_port::set_log_level(highest);
        for (int level = 0; level <= 5; level++) {
            PrintLog(0, level, "f", 1, "g", "text");
        }
        EXPECT_EQ(lines.size(), static_cast<size_t>(highest) + 1);
    }
}
