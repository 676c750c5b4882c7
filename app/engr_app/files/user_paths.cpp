// The XDG base directories.
#include "files/user_paths.h"

#include "base/failure.h"
#include "files/output_file.h"

#include <cstdlib>
#include <filesystem>
#include <string_view>

#include <fmt/format.h>

namespace engr_app {
namespace {

std::string user_path(const char *variable, std::string_view below_home, std::string_view name) {
    const char *directory = std::getenv(variable);
    const char *home = std::getenv("HOME");
    std::filesystem::path base;
    // A relative path would depend on where the program was started.
    if (directory != nullptr && directory[0] == '/') {
        base = directory;
    } else if (home != nullptr && home[0] == '/') {
        base = std::filesystem::path(home) / below_home;
    } else {
        return "";
    }
    return base / "engr_app" / name;
}

std::string state_path(std::string_view name) {
    return user_path("XDG_STATE_HOME", ".local/state", name);
}

} // namespace

std::string config_path() {
    return user_path("XDG_CONFIG_HOME", ".config", "config");
}

std::string names_path() {
    return user_path("XDG_CONFIG_HOME", ".config", "names.json");
}

std::string gateway_in_use_path() {
    return state_path("gateway.json");
}

std::string known_gateways_path() {
    return user_path("XDG_CACHE_HOME", ".cache", "gateways.json");
}

std::string seen_words_path(std::string_view kind, std::string_view source) {
    return user_path("XDG_CACHE_HOME", ".cache", fmt::format("words.{}.{}", kind, source));
}

std::string saved_log_path(const std::string &name) {
    return state_path(name);
}

void write_user_file(const std::string &path, const std::string &text) {
    const std::filesystem::path directory = std::filesystem::path(path).parent_path();
    std::error_code problem;
    if (path.empty()) {
        throw failure("output", "there is no home directory to keep it in");
    }
    if (std::filesystem::create_directories(directory, problem)) {
        std::filesystem::permissions(directory, std::filesystem::perms::owner_all, problem);
    }
    if (problem) {
        throw failure("output",
                      fmt::format("can't make {}: {}", directory.string(), problem.message()));
    }
    write_file(path, text, readers::owner);
}

} // namespace engr_app
