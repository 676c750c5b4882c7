// Names of the errors.
#include "lan_client/errors.h"

namespace lan_client {

const char *error_name(error_kind kind) {
    switch (kind) {
#define LAN_CLIENT_ERROR_NAME(kind)                                                                \
    case error_kind::kind:                                                                         \
        return #kind;
        LAN_CLIENT_ERROR_KINDS(LAN_CLIENT_ERROR_NAME)
#undef LAN_CLIENT_ERROR_NAME
    }
    return "unknown";
}

} // namespace lan_client
