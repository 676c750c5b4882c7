// The lines that the Linux port's log hands to a program.
#include "linux_port/port.h"
#include "log_limit.h"
#include "platform/log.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <utility>
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
        static int line = 0; // another place each time: repeated lines are limited
        PrintLog(0, 0, "f", ++line, "g", "%s", text.c_str());
        return lines.size() == 1 ? lines[0].substr(lines[0].find(" g ") + 3) : "not one line";
    }

    std::vector<int> levels;
    std::vector<std::string> lines;
};

} // namespace

TEST_F(linux_log, a_line_has_time_level_place_and_message) {
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
    EXPECT_EQ(message_of(R"({"passwd":"","type":1})"), R"({"passwd":***,"type":1})");
    EXPECT_EQ(message_of(R"({"token":"never closed)"), R"({"token":***)");
    EXPECT_EQ(message_of(R"({"token":12,"local_key":)"), R"({"token":***,"local_key":***)");
    EXPECT_EQ(message_of(R"({"passwd":["s3cret","x",{"y":"]"}],"token":{"a":[1,"}"]},"b":1})"),
              R"({"passwd":***,"token":***,"b":1})");
    EXPECT_EQ(message_of(R"([{"passwd":["never","closed)"), R"([{"passwd":***)");
    EXPECT_EQ(message_of(R"([{"token":1},{"pass\u0077d" : "a\\"},{"to\u006Ben":"b"}])"),
              R"([{"token":***},{"pass\u0077d" :***},{"to\u006Ben":***}])");
    EXPECT_EQ(message_of(R"({"passwords":"a","\u":"b"})"), R"({"passwords":"a","\u":"b"})");
    EXPECT_EQ(message_of(R"(the "token" is "passwd")"), R"(the "token" is "passwd")");
    const std::string longest = R"(\u006c\u006f\u0063\u0061\u006c\u005f\u006b\u0065\u0079)";
    EXPECT_EQ(message_of('"' + longest + R"(":1)"), '"' + longest + R"(":***)");
    EXPECT_EQ(message_of('"' + longest + R"(s:1")"), '"' + longest + R"(s:1")");
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
    EXPECT_EQ(message_of("\x9b"
                         "2J \xe2\x80 \xed\xa0\x80 \xff."),
              "\\x9b2J \\xe2\\x80 \\xed\\xa0\\x80 \\xff.")
        << "bytes that are no UTF-8 are made visible";
    EXPECT_EQ(message_of("a\u202eb \u2066c \u200f \u2028."),
              "a\\xe2\\x80\\xaeb \\xe2\\x81\\xa6c \\xe2\\x80\\x8f \\xe2\\x80\\xa8.")
        << "what turns the direction of writing or ends a line is made visible";
    EXPECT_EQ(message_of("\u4f60\u597d \U0001F600"), "\u4f60\u597d \U0001F600");
}

TEST_F(linux_log, what_stands_next_to_an_invisible_character_or_a_wrong_byte_is_shown) {
    for (const std::string shown :
         {" ", "~", "\u00a0", "\u061b", "\u061d", "\u07ff", "\u0800", "\u200d", "\u2010", "\u2027",
          "\u202f", "\u2065", "\u206a", "\ud7ff", "\ue000", "\uffff", "\U00010000", "\U0010ffff"}) {
        EXPECT_EQ(message_of("a" + shown), "a" + shown);
    }
    std::istringstream escaped(
        "\x1f \x7f \u0080 \u009f \u061c \u200e \u200f \u2028 \u202e \u2066 \u2069 "
        "\xc1\xbf \xe0\x9f\xbf \xed\xa0\x80 \xed\xbf\xbf \xf0\x8f\xbf\xbf \xf4\x90\x80\x80 "
        "\xf5\x80\x80\x80 \xc3 \xc3\xc3 \xc3\x7f \xe2\x80 \xf0\x9f\x98");
    for (std::string bytes; escaped >> bytes;) {
        std::string written;
        for (const char byte : bytes) {
            char digits[5];
            std::snprintf(digits, sizeof digits, "\\x%02x", static_cast<unsigned char>(byte));
            written += digits;
        }
        EXPECT_EQ(message_of(bytes + "."), written + ".");
    }
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
            PrintLog(0, level, "levels", 10 * highest + level, "g", "text");
        }
        EXPECT_EQ(lines.size(), static_cast<size_t>(highest) + 1);
    }
}

TEST_F(linux_log, lines_of_one_place_that_repeat_are_left_out_and_counted) {
    constexpr size_t written = 1000;
    for (size_t i = 0; i < written; ++i) {
        PrintLog(0, LOG_LEVEL_FAILURE, "flood", 1, "g", "not enough data");
    }
    const size_t shown = lines.size();
    EXPECT_LT(shown, written / 2) << "expected most of them to be left out";
    PrintLog(0, LOG_LEVEL_FAILURE, "flood", 2, "g", "another place");
    EXPECT_NE(lines.back().find("another place"), std::string::npos);

    std::vector<std::string> last_lines;
    linux_port::set_log_sink([&](int, std::string_view line) { last_lines.emplace_back(line); });
    size_t left_out = 0;
    size_t plain = 0;
    for (const std::string &line : lines) {
        const bool is_notice = line.find(" more lines of this place were left out") != line.npos;
        plain += line.find("not enough data") != std::string::npos ? 1 : 0;
        if (is_notice) {
            EXPECT_NE(line.find(" 0 flood:1 g "), std::string::npos) << line;
            left_out += std::stoul(line.substr(line.find(" g ") + 3));
        }
    }
    EXPECT_EQ(plain + left_out, written) << "a line was neither written nor counted";
}

TEST(log_limit, lets_a_place_write_so_many_lines_or_bytes_a_second) {
    using namespace linux_port;
    log_limit limit;
    monotonic_clock::time_point now{};
    const auto admitted = [&](int line, size_t bytes) {
        size_t count = 0;
        for (int i = 0; i < 100 && limit.admits("file.cpp", line, "f", 0, now); ++i) {
            limit.add_bytes("file.cpp", line, bytes);
            ++count;
        }
        return count;
    };
    for (int second = 0; second < 3; ++second) {
        EXPECT_EQ(admitted(1, 100), log_limit::lines_max);
        EXPECT_EQ(admitted(2, 4096), 4U);
        EXPECT_EQ(admitted(3, log_limit::bytes_max * 4), 1U);
        now += log_limit::period - std::chrono::nanoseconds(1);
        EXPECT_EQ(admitted(1, 100), 0U);
        EXPECT_FALSE(limit.take_left_out(now).has_value()) << "the second is not over";
        now += std::chrono::nanoseconds(1);
        uint64_t count = 0;
        while (const auto left_out = limit.take_left_out(now)) {
            count += left_out->count;
        }
        EXPECT_EQ(count, 4U);
        EXPECT_FALSE(limit.has_left_out());
    }
}

TEST(log_limit, names_the_place_of_what_was_left_out_in_so_many_characters) {
    linux_port::log_limit limit;
    linux_port::monotonic_clock::time_point now{};
    const std::string file(60, 'f');
    const std::string function(80, 'g');
    for (uint32_t lines = 0; lines < linux_port::log_limit::lines_max + 3; ++lines) {
        limit.admits(file, 7, function, 1, now);
    }
    EXPECT_TRUE(limit.has_left_out());
    const auto left_out = limit.take_left_out(now + linux_port::log_limit::period);
    ASSERT_TRUE(left_out);
    EXPECT_EQ(left_out->count, 3U);
    EXPECT_EQ(left_out->level, 1);
    EXPECT_EQ(left_out->line, 7);
    EXPECT_EQ(left_out->file, std::string(47, 'f'));
    EXPECT_EQ(left_out->function, std::string(63, 'g'));
    EXPECT_TRUE(limit.admits(file + "2", 7, function, 1, now + linux_port::log_limit::period))
        << "expected another second to have lines of its own";
}

TEST(log_limit, more_places_than_it_has_room_for_are_not_limited) {
    linux_port::log_limit limit;
    const linux_port::monotonic_clock::time_point now{};
    for (int line = 0; line < 1000; ++line) {
        EXPECT_TRUE(limit.admits("file.cpp", line, "f", 0, now));
    }
    const auto later = now + linux_port::log_limit::period;
    for (uint32_t lines = 0; lines < linux_port::log_limit::lines_max; ++lines) {
        EXPECT_TRUE(limit.admits("file.cpp", 1000, "f", 0, later));
    }
    EXPECT_FALSE(limit.admits("file.cpp", 1000, "f", 0, later))
        << "expected the room of a place whose second is over to be taken again";
}

namespace {

/** Something else in the place of standard error. */
class replaced_standard_error {
  public:
    /** Takes the descriptor over. */
    explicit replaced_standard_error(int by) : before_(dup(STDERR_FILENO)) {
        dup2(by, STDERR_FILENO);
        ::close(by);
    }
    ~replaced_standard_error() {
        dup2(before_, STDERR_FILENO);
        ::close(before_);
    }
    replaced_standard_error(const replaced_standard_error &) = delete;
    replaced_standard_error &operator=(const replaced_standard_error &) = delete;

  private:
    int before_;
};

/** A pipe in the place of standard error. */
class standard_error_pipe {
  public:
    ~standard_error_pipe() { close_reader(); }

    /** What one read brings of what was written before. */
    std::string read_some() const {
        std::string bytes(1 << 20, '\0');
        bytes.resize(
            static_cast<size_t>(std::max<ssize_t>(read(reader_, bytes.data(), bytes.size()), 0)));
        return bytes;
    }
    void close_reader() {
        if (reader_ >= 0) {
            ::close(std::exchange(reader_, -1));
        }
    }

  private:
    /** The end to write to; the reader is kept. */
    int open() {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        reader_ = ends[0];
        fcntl(reader_, F_SETFL, O_NONBLOCK);
        return ends[1];
    }

    int reader_ = -1;
    replaced_standard_error written_{open()};
};

} // namespace

TEST(standard_error, without_a_reader_never_blocks_and_counts_lost_lines) {
    constexpr size_t written = 500;
    standard_error_pipe standard_error;
    const std::string line(1000, 'x');
    for (size_t i = 0; i < written; ++i) {
        linux_port::write_standard_error(line);
    }
    const std::string before = standard_error.read_some();
    linux_port::write_standard_error("read again");
    const std::string after = standard_error.read_some();
    const auto whole = static_cast<size_t>(std::count(before.begin(), before.end(), '\n'));
    EXPECT_LT(whole, written);
    EXPECT_NE(after.find(" " + std::to_string(written - whole) + " lines were lost"),
              std::string::npos)
        << after;
    EXPECT_TRUE(after.ends_with("\nread again\n")) << after;
    standard_error.close_reader();
    linux_port::write_standard_error("nobody is there");
}

TEST(standard_error, that_is_a_file_gets_one_line_behind_the_other) {
    const int file = memfd_create("log", 0);
    const replaced_standard_error written(dup(file));
    linux_port::write_standard_error("one");
    linux_port::write_standard_error("two");
    char content[20] = "";
    EXPECT_EQ(pread(file, content, sizeof content, 0), 8);
    EXPECT_STREQ(content, "one\ntwo\n");
    ::close(file);
}

TEST(standard_error, a_full_disk_costs_lines_and_nothing_else) {
    {
        const replaced_standard_error full(open("/dev/full", O_WRONLY | O_CLOEXEC));
        linux_port::write_standard_error("lost");
    }
    const standard_error_pipe standard_error;
    linux_port::set_log_sink({});
    PrintLog(0, LOG_LEVEL_FAILURE, "file.cpp", 1, "function", "room again");
    const std::string bytes = standard_error.read_some();
    EXPECT_NE(bytes.find(" lines were lost here"), std::string::npos) << bytes;
    EXPECT_TRUE(bytes.ends_with(" file.cpp:1 function room again\n"))
        << "without a sink of the program's own the log goes to standard error: " << bytes;
}
