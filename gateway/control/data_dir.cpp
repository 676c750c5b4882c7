#include "data_dir.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace control {
namespace {

std::string absolute_variable(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr && value[0] == '/' ? value : "";
}

/** Goes one step down; 0, or the error. */
int step_into(const std::string &name, bool create) {
    if (create && mkdir(name.c_str(), 0700) != 0 && errno != EEXIST) {
        return errno;
    }
    return chdir(name.c_str()) == 0 ? 0 : errno;
}

} // namespace

std::string default_data_dir() {
    if (const std::string state = absolute_variable("XDG_STATE_HOME"); !state.empty()) {
        return state + "/engr_gatewayd";
    }
    if (const std::string home = absolute_variable("HOME"); !home.empty()) {
        return home + "/.local/state/engr_gatewayd";
    }
    return "engr_gateway";
}

void enter_directory(const std::string &path, bool create) {
    // Step by step, since the system takes no path above PATH_MAX at once.
    int error = path.empty() ? ENOENT : path.front() == '/' ? step_into("/", false) : 0;
    for (std::size_t begin = 0; begin < path.size() && error == 0;) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        if (end != begin) {
            error = step_into(path.substr(begin, end - begin), create);
        }
        begin = end + 1;
    }
    if (error != 0) {
        throw directory_error(
            fmt::format("cannot enter the data directory '{}': {}", path, std::strerror(error)));
    }
}

} // namespace control
