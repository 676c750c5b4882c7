// What a gateway holds and offers, in full, for a person who looks at it; the status in host.h only
// counts much of it.
//
// All functions may be called on any thread between open and close. They throw refused when the
// store fails.
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace gateway {

/**
 * What apps have made of the devices: "groups" with their members, "scenes" with their actions,
 * "panels" with their buttons, and the stored "linkage" scenes, as in a site file; the time
 * "modified" of a linkage set that was never stored is null.
 */
nlohmann::ordered_json contents();

/** Which data points the devices of each product have, as in a site file. */
nlohmann::ordered_json products();

/** The "services" and "callbacks" that can misbehave, in order: "name", and what it "returns",
 * which is "number", "byte", "pointer" or "nothing". */
nlohmann::ordered_json changeable_calls();

} // namespace gateway
