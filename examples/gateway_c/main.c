/* Runs the example gateway until it gets SIGINT or SIGTERM. */
#include "services.h"

#include "engr_lan_agent.h"

#include <signal.h>
#include <stdio.h>

int main(void) {
    sigset_t ends;
    int received;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    sigprocmask(SIG_BLOCK, &ends, NULL); /* in every thread that follows */
    if (gateway_begin() != 0 || engr_lan_pro_cntl_init(ENGR_MODE_LAN) != ENGR_OK) {
        fputs("the gateway cannot be started\n", stderr);
        return 1;
    }
    sigwait(&ends, &received);
    return engr_lan_pro_cntl_exit() == ENGR_OK ? 0 : 1;
}
