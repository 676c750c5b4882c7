#include "store/disk_room.h"

#include <sys/statvfs.h>

namespace gateway {

uint64_t disk_room() {
    struct statvfs status {};
    if (statvfs(".", &status) != 0) {
        return UINT64_MAX;
    }
    return uint64_t{status.f_bavail} * status.f_frsize;
}

} // namespace gateway
