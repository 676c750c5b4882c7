// The one list of verbs: a line here and a file <name>.cpp make a verb.
#include "verbs/verb.h"

// name, summary; the function declare_<name> is in <name>.cpp
#define ENGR_APP_VERBS(VERB)                                                                       \
    VERB(discover, "list the gateways that announce themselves")                                   \
    VERB(info, "what is known of a gateway, whether it answers, whether the key is right")         \
    VERB(devices, "table of the gateway's devices, with their online state")                       \
    VERB(online, "which devices are online and which are not")                                     \
    VERB(watch, "live reports, until Ctrl-C")                                                      \
    VERB(dp, "show, change and query data points of a device")                                     \
    VERB(channel, "show or change the radio channel")                                              \
    VERB(group, "change groups of devices and command them")                                       \
    VERB(scene, "run, store and assign scenes")                                                    \
    VERB(bind, "enter a list of devices")                                                          \
    VERB(unbind, "remove devices")                                                                 \
    VERB(token, "bind the installer's token")                                                      \
    VERB(wifi, "move the gateway to another Wi-Fi network")                                        \
    VERB(join, "let new devices join")                                                             \
    VERB(config, "push the configuration files, read one back")                                    \
    VERB(log, "fetch the log")                                                                     \
    VERB(upgrade, "bring new firmware to the gateway or to a device")                              \
    VERB(deactivate, "take the gateway out of service")                                            \
    VERB(provision, "give a gateway in access-point mode its Wi-Fi network")                       \
    VERB(site, "report what was commissioned, and what changed since an earlier report")           \
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
