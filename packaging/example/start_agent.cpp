// The smallest program around the agent, in C++: started with an argument, it runs the agent once.
#include <engr_lan_agent.h>

#include <iostream>

int main(int argc, char **) {
    if (argc > 1 && engr_lan_pro_cntl_init(ENGR_MODE_LAN) == ENGR_OK) {
        static_cast<void>(engr_lan_pro_cntl_exit());
    }
    std::cout << "connected apps: " << engr_lan_pro_cntl_get_valid_connect_cnt() << '\n';
}
