// Staying connected while an upgrade runs: a gateway ends it when any connection to it ends.
#pragma once

#include "lan_client/client.h"
#include "lan_client/upgrade_monitor.h"

namespace engr_app {

class gateway_session;

/**
 * Asks whether an upgrade runs on the session's gateway, and returns once none does. Says so when
 * it has to wait; gives up on SIGINT, when the connection is lost, and when the upgrade makes no
 * progress for 10 minutes.
 *
 * @param client   the session's, connected
 * @param monitor  what the session has seen of an upgrade
 */
void stay_while_upgrading(gateway_session &session, lan_client::client &client,
                          lan_client::upgrade_monitor &monitor);

} // namespace engr_app
