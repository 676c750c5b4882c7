#include "upgrade_verb.h"

#include "gateway_services/error.h"
#include "gateway_services/host.h"
#include "numbers.h"

namespace gatewayd {
namespace {

constexpr const char *usage =
    "usage: start [--cid ID] [--file-size N] [--chunk-size N] [--percent 0|1] [--remain N]";

void set_option(gateway::upgrade_start &wanted, const std::string &name, const std::string &value) {
    if (name == "--cid") {
        wanted.cid = value;
    } else if (name == "--file-size") {
        wanted.file_size = number_from_text<uint32_t>(name, value);
    } else if (name == "--chunk-size") {
        wanted.chunk_size = number_from_text<uint32_t>(name, value);
    } else if (name == "--percent") {
        wanted.percent = number_from_text<uint32_t>(name, value) != 0;
    } else if (name == "--remain") {
        wanted.remain = number_from_text<uint32_t>(name, value);
    } else {
        throw gateway::usage_error("unknown option '" + name + "'; " + usage);
    }
}

} // namespace

int32_t start_upgrade(const std::vector<std::string> &arguments) {
    if (arguments.front() != "start" || arguments.size() % 2 == 0) {
        throw gateway::usage_error(usage);
    }
    gateway::upgrade_start wanted;
    for (std::size_t i = 1; i < arguments.size(); i += 2) {
        set_option(wanted, arguments[i], arguments[i + 1]);
    }
    return gateway::start_upgrade(wanted);
}

} // namespace gatewayd
