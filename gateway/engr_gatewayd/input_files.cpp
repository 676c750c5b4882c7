#include "input_files.h"

#include "gateway_services/error.h"
#include "linux_port/port.h"
#include "support/files.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>
#include <cstring>

namespace gatewayd {
namespace {

std::shared_ptr<trace_file> open_trace(const std::string &name) {
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0) {
        throw gateway::usage_error(
            fmt::format("{}: cannot be written: {}", name, std::strerror(errno)));
    }
    return std::make_shared<trace_file>(fd);
}

void say_recording_fault(const std::string &what) {
    linux_port::write_standard_error("engr_gatewayd: --record: " + what);
}

} // namespace

input_files read_input_files(const options &chosen) {
    input_files inputs;
    const uint32_t number = gateway::gateway_number(served_address(chosen));
    inputs.site = chosen.site.empty()
                      ? gateway::demo_site(number)
                      : gateway::parse_site(support::read_file(chosen.site), chosen.site, number);
    if (!chosen.scenario.empty()) {
        inputs.scenario_text = support::read_file(chosen.scenario);
        inputs.scenario = gateway::parse_scenario(inputs.scenario_text, chosen.scenario);
    }
    if (!chosen.trace.empty()) {
        inputs.trace = open_trace(chosen.trace);
    }
    if (!chosen.record.empty()) {
        inputs.record = std::make_shared<session::file>(chosen.record, say_recording_fault);
    }
    return inputs;
}

} // namespace gatewayd
