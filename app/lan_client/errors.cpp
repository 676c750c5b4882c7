// Names of the errors.
#include "lan_client/errors.h"

namespace lan_client {

const char *error_name(error_kind kind) {
    switch (kind) {
    case error_kind::none:
        return "none";
    case error_kind::no_interface:
        return "no_interface";
    case error_kind::bad_address:
        return "bad_address";
    case error_kind::refused:
        return "refused";
    case error_kind::unreachable:
        return "unreachable";
    case error_kind::table_full:
        return "table_full";
    case error_kind::connection_lost:
        return "connection_lost";
    case error_kind::timed_out:
        return "timed_out";
    case error_kind::wrong_key:
        return "wrong_key";
    case error_kind::deactivated:
        return "deactivated";
    case error_kind::damaged:
        return "damaged";
    case error_kind::answer_too_long:
        return "answer_too_long";
    case error_kind::too_large:
        return "too_large";
    case error_kind::queue_full:
        return "queue_full";
    case error_kind::cancelled:
        return "cancelled";
    }
    return "unknown";
}

} // namespace lan_client
