// The gateways that run on this machine.
#pragma once

#include <string>
#include <vector>

namespace control {

struct running_gateway {
    /** A way into its data directory, which is its working directory: short, however long the name
     * of that is, and good as long as it runs. */
    std::string entrance;
    std::string data_dir; /**< the name of the directory, for people */
};

/**
 * Looks at all processes.
 *
 * @return those with a control socket that the caller may use, in order of their directories: of
 *         root's, all
 */
std::vector<running_gateway> running_gateways();

} // namespace control
