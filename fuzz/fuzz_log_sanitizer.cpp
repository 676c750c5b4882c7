// A gateway's log of which the input is a part, as a stranger gets to see it.
//
// A password, a token and an id that stand in it as gateways write them are not shown, whatever
// stands on the lines around them or before them on their own line. What is not hidden stays as it
// is: a log without names of secrets or ids keeps its lines.
#include "files/log_sanitizer.h"
#include "support/require.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace {

using fuzz::require;

constexpr std::string_view password = "Correct-Horse";
constexpr std::string_view id = "known-device-7";

bool shows(const std::string &text, std::string_view hidden) {
    return text.find(hidden) != std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view around(reinterpret_cast<const char *>(data), size);
    if (around.find(password) != std::string_view::npos ||
        around.find("known") != std::string_view::npos) {
        return 0;
    }
    const std::string secrets = "Rev Data:{\"ssid\":\"net\",\"passwd\":\"" + std::string(password) +
                                "\"} for " + std::string(id) + " here";
    const std::string log = std::string(around) + "\n" + secrets + "\n" + std::string(around);
    const std::string shown = engr_app::log_sanitizer({std::string(id)}).clean(log);
    require(!shows(shown, password), "no password to be shown");
    require(!shows(shown, id), "no id to be shown");
    require(std::ranges::count(shown, '\n') == std::ranges::count(log, '\n'),
            "each line to stay one");

    // The same behind what the input says, on one line.
    const std::string line = std::string(around.substr(0, around.find('\n'))) + " " + secrets;
    require(!shows(engr_app::log_sanitizer({}).clean(line), password),
            "no password to be shown on a line that begins with anything");
    return 0;
}
