#include "support/interfaces.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <memory>

namespace support {

std::vector<std::string> interface_names() {
    const std::unique_ptr<struct if_nameindex, decltype(&if_freenameindex)> all(if_nameindex(),
                                                                                if_freenameindex);
    std::vector<std::string> names;
    for (const struct if_nameindex *each = all.get(); each != nullptr && each->if_index != 0;
         ++each) {
        names.emplace_back(each->if_name);
    }
    return names;
}

std::string interface_fault(const std::string &name) {
    if (if_nametoindex(name.c_str()) != 0) {
        return {};
    }
    return fmt::format("there is no interface '{}'; there are: {}", name,
                       fmt::join(interface_names(), ", "));
}

std::vector<std::string> interfaces_up() {
    ifaddrs *first = nullptr;
    if (getifaddrs(&first) != 0) {
        return {};
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> all(first, freeifaddrs);
    std::vector<std::string> names;
    for (const ifaddrs *each = first; each != nullptr; each = each->ifa_next) {
        if ((each->ifa_flags & IFF_UP) != 0 && std::ranges::count(names, each->ifa_name) == 0) {
            names.emplace_back(each->ifa_name);
        }
    }
    std::stable_partition(names.begin(), names.end(),
                          [](const std::string &name) { return name != "lo"; });
    return names;
}

} // namespace support
