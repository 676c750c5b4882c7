// The verbs of the command line.
#pragma once

#include <functional>
#include <span>

namespace engr_app {

class arguments;
class gateway_session;

/// Does the work of one verb; returns the exit code.
using verb_work = std::function<int(gateway_session &)>;

struct verb {
    const char *name;
    const char *summary;
    /// Declares the verb's own arguments and its examples; the work uses what was parsed.
    verb_work (*declare)(arguments &declared);
};

/// All verbs in the order in which --help shows them.
[[nodiscard]] std::span<const verb> verbs();

} // namespace engr_app
