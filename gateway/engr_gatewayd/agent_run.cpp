#include "agent_run.h"

#include "engr_lan_agent.h"

#include <atomic>

namespace gatewayd {
namespace {

std::atomic<bool> started;
std::atomic<int32_t> last_mode;

} // namespace

int32_t start_agent(int32_t mode) {
    const int32_t result = engr_lan_pro_cntl_init(mode);
    // A second start changes nothing, nor the mode.
    if (result == 0 && !started.exchange(true)) {
        last_mode = mode;
    }
    return result;
}

int32_t stop_agent() {
    const int32_t result = engr_lan_pro_cntl_exit();
    started = false;
    return result;
}

bool agent_is_started() {
    return started;
}
int32_t agent_mode() {
    return last_mode;
}

} // namespace gatewayd
