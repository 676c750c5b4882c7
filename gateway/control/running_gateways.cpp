#include "running_gateways.h"

#include "data_dir.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace control {
namespace {

namespace fs = std::filesystem;

/** As the system names the processes of the daemon. */
constexpr const char *daemon_name = "engr_gatewayd";

bool is_daemon(const fs::path &process) {
    std::string name;
    std::getline(std::ifstream(process / "comm"), name);
    return name == daemon_name;
}

} // namespace

std::vector<running_gateway> running_gateways() {
    std::vector<running_gateway> found;
    std::error_code problem; // a process may end at any moment
    for (fs::directory_iterator at("/proc", problem), end; !problem && at != end;
         at.increment(problem)) {
        const fs::path &process = at->path();
        if (!is_daemon(process)) {
            continue;
        }
        const std::string entrance = process / "cwd";
        std::error_code gone;
        const std::string directory = fs::read_symlink(entrance, gone);
        if (!gone && access((entrance + "/" + socket_name).c_str(), W_OK) == 0) {
            found.push_back({entrance, directory});
        }
    }
    std::ranges::sort(found, {}, &running_gateway::data_dir);
    return found;
}

} // namespace control
