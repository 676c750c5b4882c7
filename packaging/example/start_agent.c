/* The smallest program around the agent, in C: started with an argument, it runs the agent once. */
#include <engr_lan_agent.h>
#include <stdio.h>

int main(int argc, char **argv) {
    (void)argv;
    if (argc > 1 && engr_lan_pro_cntl_init(ENGR_MODE_LAN) == ENGR_OK) {
        (void)engr_lan_pro_cntl_exit();
    }
    printf("connected apps: %d\n", (int)engr_lan_pro_cntl_get_valid_connect_cnt());
    return 0;
}
