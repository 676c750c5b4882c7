/* Descriptor sets of select: plain lists, the same on every port. */
#include "platform/socket.h"

namespace {

bool has(const kelo_fd_set_t &set, int32_t descriptor) {
    for (uint32_t i = 0; i < set.count; ++i) {
        if (set.descriptors[i] == descriptor) {
            return true;
        }
    }
    return false;
}

} // namespace

void kelo_hal_net_fd_zero(kelo_fd_set_t *set) {
    set->count = 0;
}

void kelo_hal_net_fd_set(int32_t descriptor, kelo_fd_set_t *set) {
    if (descriptor >= 0 && set->count < KELO_FD_SET_CAPACITY && !has(*set, descriptor)) {
        set->descriptors[set->count++] = descriptor;
    }
}

int32_t kelo_hal_net_fd_isset(int32_t descriptor, const kelo_fd_set_t *set) {
    return has(*set, descriptor) ? 1 : 0;
}
