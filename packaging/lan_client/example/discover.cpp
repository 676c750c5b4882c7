// Shows the first gateway that announces itself on lo within some seconds (argument), with the C++
// library.
#include <lan_client/discovery.h>

#include <chrono>
#include <cstdlib>
#include <iostream>

int main(int argc, char **argv) {
    using namespace lan_client;
    event_loop loop;
    bool found = false;
    discovery_listener listener(loop, [&found](const parsed_datagram &got) {
        if (got.kind == datagram_kind::announcement) {
            std::cout << "gateway " << got.content.id << " at " << got.content.address << '\n';
            found = true;
        }
    });
    if (const error problem = listener.open("lo")) {
        std::cerr << "can't listen: " << error_name(problem.kind) << '\n';
        return 1;
    }
    loop.run_until([&found] { return found; },
                   std::chrono::seconds(argc > 1 ? std::atoi(argv[1]) : 6));
    std::cout << "done\n";
}
