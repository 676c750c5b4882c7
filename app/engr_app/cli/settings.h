// What a user always means, for options that the command line leaves out: from the environment, the
// configuration file, or the gateway that `use` has chosen, in this order.
#pragma once

namespace CLI {
class App;
}

namespace engr_app {

struct global_options;
class console;

/**
 * Fills the options that were not given. To be called after the command line was parsed.
 *
 * @param for_gateway  whether the work is with a gateway, so that one may be chosen
 * @param out          gets warnings of a configuration file with faults, which are passed over
 * @throws failure of wrong usage when an environment variable has a value that can't be right
 */
void apply_settings(CLI::App &whole, global_options &options, bool for_gateway, console &out);

} // namespace engr_app
