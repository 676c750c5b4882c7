// Which kind of failure has which exit status.
#include "base/failure.h"

#include <algorithm>
#include <iterator>

namespace engr_app {
namespace {

struct kind_status {
    std::string_view kind;
    int status;
};

constexpr kind_status kinds[] = {
    {"usage", exit_wrong_usage},
    {"input", exit_wrong_usage},
    {"key_file", exit_wrong_usage},
    {"record_file", exit_wrong_usage},
    {"site_report", exit_wrong_usage},
    {"plan", exit_wrong_usage},
    {"progress", exit_wrong_usage},
    {"other_type", exit_wrong_usage},
    {"no_gateway", exit_not_found},
    {"several_gateways", exit_not_found},
    {"no_interface", exit_not_found},
    {"unknown_device", exit_not_found},
    {"no_own_device", exit_not_found},
    {"refused_by_gateway", exit_refused},
    {"not_accepted", exit_refused},
    {"busy", exit_refused},
    {"wifi_failure", exit_refused},
    {"refused", exit_no_connection},
    {"unreachable", exit_no_connection},
    {"table_full", exit_no_connection},
    {"connection_lost", exit_no_connection},
    {"timed_out", exit_no_connection},
    {"queue_full", exit_no_connection},
    {"local_key", exit_key},
    {"wrong_key", exit_key},
    {"deactivated", exit_key},
    {"other_seeds", exit_key},
    {"interrupted", exit_interrupted},
    {"cancelled", exit_interrupted},
};

constexpr exit_status_meaning meanings[] = {
    {exit_success, "success (with several gateways: with all)"},
    {exit_failed, "the work failed for another reason than those below"},
    {exit_wrong_usage, "wrong usage, or a file that can't be read"},
    {exit_not_found, "no such gateway, interface or device, or several where one is needed"},
    {exit_refused, "the gateway refused"},
    {exit_no_connection, "no connection, a lost one, or no answer"},
    {exit_key, "the key is missing or wrong"},
    {exit_partly_failed, "with several gateways: some failed, or each in another way"},
    {exit_interrupted, "ended by Ctrl-C"},
};

} // namespace

std::span<const exit_status_meaning> exit_statuses() {
    return meanings;
}

int exit_status_of(std::string_view kind) {
    const auto *found = std::ranges::find(kinds, kind, &kind_status::kind);
    return found == std::end(kinds) ? exit_failed : found->status;
}

} // namespace engr_app
