// A line of a control client to the reference gateway, with its agent.
//
// The answer is one line of JSON: a result, or an error that says whether the request can ever be
// right. A line that is a request, written again, is the same request. Whatever was done, the
// gateway and its agent can be stopped, and nothing is left behind.
#include "engr_gatewayd/happenings.h"
#include "engr_gatewayd/server_watch.h"
#include "engr_gatewayd/verb_handlers.h"
#include "support/gateway_world.h"
#include "support/json_mutator.h"
#include "support/require.h"
#include "verbs.h"

#include <algorithm>
#include <nlohmann/json.hpp>

// In the place of the daemon's, which looks at the Linux port.
bool gatewayd::server_is_listening() {
    return sim::world::current().listens(fuzz::lan_port);
}

// Nobody records what happens here.
uint64_t gatewayd::happenings_time() {
    return 0;
}
void gatewayd::tell_control(uint64_t, const std::vector<std::string> &, std::string_view) {}

namespace {

using fuzz::require;

void check_request(std::string_view line) {
    const control::request asked = control::parse_request(line);
    if (asked.verb.empty()) {
        return;
    }
    const control::request again = control::parse_request(control::request_line(asked));
    require(again.verb == asked.verb && again.arguments == asked.arguments,
            "a request that was written again to be the same");
    const std::string shown = control::terminal_text(line);
    require(std::ranges::all_of(shown, [](char each) { return each >= ' ' && each <= '~'; }),
            "printable characters for a terminal");
}

bool is_usage_error(const nlohmann::json &answer) {
    return answer.contains("error") && answer["usage"].get<bool>();
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t most, unsigned seed) {
    return fuzz::mutate_json_line(data, size, most, seed);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view line(reinterpret_cast<const char *>(data), size);
    if (line.find('\n') != std::string_view::npos) {
        return 0;
    }
    check_request(line);
    fuzz::gateway_world &gateway = fuzz::gateway_world::fresh();
    const std::string reply = gatewayd::answer_request(line);
    require(std::ranges::count(reply, '\n') == 1 && reply.back() == '\n', "one line");
    const auto answer = nlohmann::json::parse(reply, nullptr, false);
    require(answer.is_object() && answer.contains("result") != answer.contains("error"),
            "a result or an error");
    gateway.world().run_for(1000);
    if (!is_usage_error(answer)) {
        gateway.end();
    }
    return 0;
}
