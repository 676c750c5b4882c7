// Tells the pushes of app.config. The agent writes that file by itself and tells no service, so it
// is looked at a moment after the agent has asked where configurations are.
#pragma once

namespace gateway {

void config_pushes_init();
/** No timer runs any more when it returns. */
void config_pushes_shutdown();

/**
 * The app of the calling thread may push a configuration now.
 *
 * @param name  of app.config, in the working directory
 */
void expect_config_push(const char *name);

} // namespace gateway
