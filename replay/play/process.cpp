#include "play/process.h"

#include "play/directory.h"
#include "session/lines.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <stdexcept>

namespace replay {
namespace {

constexpr const char *messages_name = "messages";

[[noreturn]] void fail(const char *what) {
    throw std::runtime_error(fmt::format("cannot make {}: {}", what, std::strerror(errno)));
}

void write_whole(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            _exit(1); // nobody reads any more
        }
        bytes.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
}

/** Plays in the child; ends it. Each event is written at once: a crash must not take any along. */
[[noreturn]] void play_in_child(const recording &played, const play_options &how,
                                const std::filesystem::path &directory, int to_parent) {
    const rlimit bound{.rlim_cur = play_cpu_s_max, .rlim_max = play_cpu_s_max};
    setrlimit(RLIMIT_CPU, &bound);
    std::filesystem::current_path(directory);
    const int messages = open(messages_name, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(messages, STDERR_FILENO);
    std::string failure;
    try {
        failure = play_here(played, how, [&](const session::event &each) {
            write_whole(to_parent, session::line_of(each) + "\n");
        });
    } catch (const std::exception &error) {
        failure = error.what();
    }
    std::fprintf(stderr, "%s", failure.c_str());
    std::fflush(nullptr);
    _exit(failure.empty() ? 0 : 1);
}

std::string read_to_end(int fd) {
    std::string text;
    char part[65536];
    for (ssize_t count = 0; (count = read(fd, part, sizeof part)) != 0;) {
        if (count < 0 && errno != EINTR) {
            break;
        }
        text.append(part, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return text;
}

std::vector<session::event> events_in(std::string_view text) {
    std::vector<session::event> events;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        if (end == std::string_view::npos) {
            break; // of a line that a crash has cut
        }
        events.push_back(session::read_event(text.substr(0, end), "the play"));
        text.remove_prefix(end + 1);
    }
    return events;
}

/** Why a child ended; empty when it came to the end of the session. */
std::string failure_of(int status, const play_directory &directory) {
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return {};
    }
    const std::string messages = directory.begin_of(messages_name);
    const std::string how =
        WIFSIGNALED(status)
            ? fmt::format("ended by signal {} ({})", WTERMSIG(status), strsignal(WTERMSIG(status)))
            : std::string("cannot go on");
    return messages.empty() ? how : how + ": " + messages;
}

} // namespace

play_result play(const recording &played, const play_options &how) {
    const play_directory directory;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        fail("a pipe");
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        fail("a process");
    }
    if (child == 0) {
        close(ends[0]);
        play_in_child(played, how, directory.path(), ends[1]);
    }
    close(ends[1]);
    const std::string text = read_to_end(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    play_result result{.happened = {.begin = played.begin, .events = events_in(text)},
                       .failure = failure_of(status, directory)};
    result.happened.begin.program = "engr_replay";
    result.happened.begin.version = ENGR_VERSION;
    return result;
}

std::vector<answer> answers_of(const play_result &of) {
    std::vector<answer> answers = answers_of(of.happened);
    if (!of.failure.empty()) {
        answers.push_back({.kind = answer_kind::ended,
                           .at_us = end_of(of.happened),
                           .text = of.failure,
                           .event = of.happened.events.size()});
    }
    return answers;
}

} // namespace replay
