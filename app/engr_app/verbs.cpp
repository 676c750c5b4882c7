// The one list of verbs: a line here and a file verb_<name>.cpp make a verb.
#include "verbs.h"

// name, summary; the function declare_<name> is in verb_<name>.cpp
#define ENGR_APP_VERBS(VERB)                                                                       \
    VERB(discover, "list the gateways that announce themselves")                                   \
    VERB(info, "what is known of a gateway, whether it answers, whether the key is right")         \
    VERB(devices, "table of the gateway's devices, with their online state")                       \
    VERB(online, "which devices are online and which are not")                                     \
    VERB(watch, "live reports, until Ctrl-C")                                                      \
    VERB(keepalive, "measure the round trip of a keep-alive")                                      \
    VERB(raw, "send one frame of any type and show the answer")

namespace engr_app {

#define DECLARE_VERB(name, summary) verb_work declare_##name(arguments &declared);
ENGR_APP_VERBS(DECLARE_VERB)
#undef DECLARE_VERB

std::span<const verb> verbs() {
#define VERB_ENTRY(name, summary) {#name, summary, declare_##name},
    static constexpr verb all[] = {ENGR_APP_VERBS(VERB_ENTRY)};
#undef VERB_ENTRY
    return all;
}

} // namespace engr_app
