#include "play/other_build.h"

#include "compare/files.h"
#include "play/directory.h"
#include "support/input_error.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace replay {
namespace {

/** Runs a program with its output in files; returns its status. */
int run(const std::vector<std::string> &words, const std::string &output,
        const std::string &messages) {
    std::vector<char *> arguments;
    for (const std::string &word : words) {
        arguments.push_back(const_cast<char *>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output.c_str(), flags, 0600);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, messages.c_str(), flags, 0600);
    pid_t child = -1;
    const int error = posix_spawn(&child, arguments[0], &files, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        throw support::input_error(
            fmt::format("cannot run {}: {}", words.front(), std::strerror(error)));
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

} // namespace

play_result play_with(const std::string &program, const recording &played,
                      const play_options &how) {
    const play_directory directory;
    const auto file = [&](const char *name) { return (directory.path() / name).string(); };
    write_file(file("session"), text_of(played));
    std::vector<std::string> words{program, "--answers", "--seed", std::to_string(how.seed)};
    if (!how.site.empty()) {
        write_file(file("site"), how.site);
        words.insert(words.end(), {"--site", file("site")});
    }
    if (!how.scenario.empty()) {
        write_file(file("scenario"), how.scenario);
        words.insert(words.end(), {"--scenario", file("scenario")});
    }
    words.push_back(file("session"));
    const int status = run(words, file("answers"), file("messages"));
    const std::string messages = directory.begin_of("messages");
    const bool has_failed = !WIFEXITED(status) || WEXITSTATUS(status) != 0;
    if (!WIFEXITED(status) || WEXITSTATUS(status) > 1) {
        throw support::input_error(fmt::format("{} can't play the session: {}", program, messages));
    }
    try {
        return {.happened = read_recording(file("answers")),
                .failure = has_failed ? messages : std::string()};
    } catch (const support::input_error &) {
        throw support::input_error(
            fmt::format("{} writes no session: is it an engr_replay? {}", program, messages));
    }
}

} // namespace replay
