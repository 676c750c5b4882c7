// What is written to a session file is read from it, and what is wrong with one is told.
#include "session/file.h"
#include "session/lines.h"
#include "session/live.h"
#include "session/reader.h"
#include "session/secrets.h"
#include "support/input_error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <future>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace session;
using testing::HasSubstr;

const std::string key = "0123456789abcdef";

header small_header() {
    header start;
    start.program = "test";
    start.version = "1";
    start.started = "2026-01-31T12:00:00.123Z";
    start.key = key;
    return start;
}

reader read_text(const std::string &text) {
    return {std::make_unique<std::istringstream>(text), "FILE"};
}

std::vector<event> read_all(reader &from) {
    std::vector<event> events;
    while (std::optional<event> next = from.next()) {
        events.push_back(std::move(*next));
    }
    return events;
}

/** A file in a directory of its own, which is deleted. */
struct temporary_file {
    std::string directory = [] {
        char name[] = "/tmp/session_test.XXXXXX";
        return std::string(mkdtemp(name));
    }();
    std::string path = directory + "/file";

    ~temporary_file() {
        unlink(path.c_str());
        rmdir(directory.c_str());
    }
};

TEST(session_file, gives_back_what_was_written) {
    const std::string hostile("\0\x01\"\\\n\x1b[2J \xE2\x80\xAE \xFF", 15);
    header start = small_header();
    start.has_secrets = true;
    start.seeds = {{"key1", "0011223344556677"}};
    start.options = R"({"mode":0})";
    start.site = R"({"gateway":{"gw_id":"x"}})";
    const frame_content reply{7, 241, 0, {}, coding::local, "{\"a\":1}", true};
    const std::vector<happening> told = {
        connected{1, "127.0.0.1:4"},
        frame{1, side::app, 2, {7, 241, {}, {}, coding::plain, "{}", false}},
        frame{1, side::gateway, {}, reply},
        frame{1, side::gateway, {}, {8, 254, 0, {{3, -1}}, coding::plain, hostile, true}},
        frame{1, side::app, {}, {9, 12, {}, {}, coding::unknown, hostile, true}},
        frame{1, side::app, {}, {9, 12, {}, {}, coding::built_in, "", true}},
        raw_bytes{1, side::app, {}, hostile},
        datagram{side::gateway, 6667, "255.255.255.255", reply},
        datagram{side::app, 6669, "10.0.0.1", hostile},
        call{"gw_get_channel", R"({"a":[1,"x"]})", "-1"},
        // A member twice, and what is no JSON at all.
        call{"engr_gw_user_token_bind", R"({"a":1,"a":2})", "oh"},
        control{4, {"report", "lamp1", hostile}, R"({"result":0})"},
        log_line{3, "1 2 \xE2\x80\xAE"},
        activity{"somebody did something"},
        closed{1, side::app},
        lost{17},
        ended{},
    };
    std::string text = line_of(start) + "\n";
    std::vector<event> written;
    for (const happening &what : told) {
        written.push_back({written.size() + 5, what});
        const std::string line = line_of(written.back());
        EXPECT_EQ(line.find_first_of("\x1b\n\x7f"), std::string::npos) << line;
        text += line + "\n";
    }
    reader from = read_text(text);
    EXPECT_EQ(line_of(from.start()), line_of(start));
    const std::vector<event> read = read_all(from);
    ASSERT_EQ(read.size(), written.size());
    const key_ring keys = keys_of(start);
    for (std::size_t i = 0; i < read.size(); ++i) {
        EXPECT_EQ(line_of(read[i]), line_of(written[i]));
        EXPECT_EQ(wire_bytes(read[i], keys), wire_bytes(written[i], keys)) << line_of(read[i]);
    }
    EXPECT_TRUE(from.is_complete());
}

TEST(session_file, tells_what_is_wrong_and_where) {
    const std::string head = line_of(small_header()) + "\n";
    const std::string open = R"({"at":5,"event":"connected","client":1,"peer":"x"})"
                             "\n";
    const struct {
        std::string text;
        const char *complaint;
    } cases[] = {
        {"", "FILE: is no session file"},
        {"{}\n", "FILE: is no session file: its first line does not say so"},
        {R"({"session":2})"
         "\n",
         "FILE: line 1: session: this program reads version 1"},
        {head + "{\n", "FILE: line 2: "},
        {head + R"({"at":1,"event":"dance"})"
                "\n",
         "FILE: line 2: event: 'dance' is unknown"},
        {head + R"({"at":1,"event":"ended","why":1})"
                "\n",
         "FILE: line 2: why: unknown"},
        {head + open +
             R"({"at":4,"event":"ended"})"
             "\n",
         "FILE: line 3: at: is 4, but the event before was at 5"},
        {head + R"({"at":1,"event":"closed","client":1})"
                "\n",
         "FILE: line 2: client: 1 is not connected"},
        {head + open + open, "FILE: line 3: client: is 1"},
        {head + open +
             R"({"at":6,"event":"bytes","client":1,"from":"app","hex":"0g"})"
             "\n",
         "FILE: line 3: hex: "},
        {head + open +
             R"({"at":6,"event":"frame","client":1,"from":"app","type":-1,"number":1})"
             "\n",
         "FILE: line 3: type: is -1"},
        {head + R"({"at":1,"event":"ended"})"
                "\n"
                R"({"at":1,"event":"ended"})"
                "\n",
         "FILE: line 3: follows the end"},
    };
    for (const auto &one : cases) {
        try {
            reader from = read_text(one.text);
            read_all(from);
            ADD_FAILURE() << "is not refused: " << one.text;
        } catch (const support::input_error &error) {
            EXPECT_THAT(error.what(), HasSubstr(one.complaint));
        }
    }
}

TEST(session_file, that_breaks_off_is_read_up_to_there) {
    reader from = read_text(line_of(small_header()) + "\n" +
                            R"({"at":5,"event":"activity","text":"x"})"
                            "\n{\"at\":6,");
    EXPECT_EQ(read_all(from).size(), 1u);
    EXPECT_TRUE(from.breaks_off());
    EXPECT_FALSE(from.is_complete());
}

TEST(session_file, keeps_whole_lines_and_counts_when_the_disk_is_full) {
    const temporary_file made;
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit usual{};
    getrlimit(RLIMIT_FSIZE, &usual);
    const auto set_room = [&](rlim_t bytes) {
        const rlimit room{bytes, usual.rlim_max};
        setrlimit(RLIMIT_FSIZE, &room);
    };
    int complaints = 0;
    {
        file written(made.path, [&](const std::string &) { ++complaints; });
        const auto add = [&](uint64_t at_us) {
            written.add({at_us, activity{std::string(200, 'x')}}, {{}, keys_of(small_header())});
            written.flush();
        };
        written.begin(small_header());
        add(1);
        set_room(600);
        for (const uint64_t at_us : {2UL, 3UL, 4UL, 5UL}) {
            add(at_us);
        }
        set_room(usual.rlim_cur);
        add(6);
    }
    EXPECT_EQ(complaints, 1);
    reader from(made.path);
    std::vector<std::string> kinds;
    for (const event &one : read_all(from)) {
        const auto *gap = std::get_if<lost>(&one.what);
        kinds.push_back(std::to_string(one.at_us) +
                        (gap ? " lost " + std::to_string(gap->events) : ""));
    }
    EXPECT_THAT(kinds, testing::ElementsAre("1", "5 lost 4", "6"));
    struct stat status {};
    ASSERT_EQ(stat(made.path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(live_events, never_wait_for_a_listener_and_count_what_is_lost) {
    std::promise<void> reached;
    std::promise<void> go_on;
    std::vector<std::string> lines;
    live_events live([] { return std::vector<lan_client::aes_key>(); });
    live.listen([&](const event &one) {
        if (lines.empty()) {
            reached.set_value();
            go_on.get_future().wait();
        }
        lines.push_back(line_of(event{0, one.what}));
    });
    live.begin();
    live.tell(activity{"first"}, 5);
    reached.get_future().wait();
    const std::string half(waiting_bytes_max / 2, 'x');
    live.tell_connected(9, "");
    live.tell_bytes(9, side::app, half);
    live.tell_bytes(9, side::app, half); // has no room
    live.tell_bytes(9, side::app, half);
    go_on.set_value();
    live.end();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[3], R"({"at":0,"event":"lost","events":2})");
    EXPECT_EQ(lines[4], R"({"at":0,"event":"ended"})");
}

} // namespace
