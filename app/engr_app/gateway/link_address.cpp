// The system's table of neighbours.
#include "gateway/link_address.h"

#include <fstream>
#include <sstream>

namespace engr_app {

std::string link_address_of(const std::string &address) {
    std::ifstream table("/proc/net/arp");
    std::string line;
    std::getline(table, line); // the header
    while (std::getline(table, line)) {
        std::istringstream cells(line);
        std::string neighbour;
        std::string hardware_type;
        std::string flags;
        std::string hardware;
        cells >> neighbour >> hardware_type >> flags >> hardware;
        if (neighbour == address && flags != "0x0") {
            return hardware;
        }
    }
    return "";
}

} // namespace engr_app
