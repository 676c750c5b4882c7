// For a build without the console (ENGR_BUILD_CONSOLE): there is none, and who asks for it is told.
#include "console_output.h"

#include "gateway_services/error.h"

namespace console {
class live_console {};
} // namespace console

namespace gatewayd {

void listen_for_console() {
    throw gateway::usage_error(
        "--console: this program was built without it; build it with ENGR_BUILD_CONSOLE=ON");
}

console_output::console_output(const options &) {}

console_output::~console_output() = default;

std::string console_output::page_address() const {
    return "";
}

void console_output::begin() {}

} // namespace gatewayd
