#include "input_files.h"

#include "gateway_services/error.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace gatewayd {
namespace {

[[noreturn]] void refuse_file(const std::string &name, const char *verb) {
    throw gateway::usage_error(name + ": cannot be " + verb + ": " + std::strerror(errno));
}

std::string read_whole(const std::string &name) {
    const int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        refuse_file(name, "read");
    }
    std::string text;
    char part[65536];
    ssize_t count = 0;
    while ((count = read(fd, part, sizeof part)) > 0) {
        text.append(part, static_cast<std::size_t>(count));
    }
    const int error = errno;
    close(fd);
    errno = error;
    if (count < 0) {
        refuse_file(name, "read");
    }
    return text;
}

std::shared_ptr<trace_file> open_trace(const std::string &name) {
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0) {
        refuse_file(name, "written");
    }
    return std::make_shared<trace_file>(fd);
}

} // namespace

input_files read_input_files(const options &chosen) {
    input_files inputs;
    const uint32_t number = gateway::gateway_number(served_address(chosen));
    inputs.site = chosen.site.empty()
                      ? gateway::demo_site(number)
                      : gateway::parse_site(read_whole(chosen.site), chosen.site, number);
    if (!chosen.scenario.empty()) {
        inputs.scenario = gateway::parse_scenario(read_whole(chosen.scenario), chosen.scenario);
    }
    if (!chosen.trace.empty()) {
        inputs.trace = open_trace(chosen.trace);
    }
    return inputs;
}

} // namespace gatewayd
