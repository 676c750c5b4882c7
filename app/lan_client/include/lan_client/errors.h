// What can go wrong between an app and a gateway.
#pragma once

#include <string>

namespace lan_client {

/** The kinds of errors, with their meaning. */
#define LAN_CLIENT_ERROR_KINDS(X)                                                                  \
    X(none)                                                                                        \
    X(no_interface)    /* the named network interface does not exist or may not be used */         \
    X(bad_address)     /* the gateway's address is not an IPv4 address */                          \
    X(refused)         /* nobody listens at the address */                                         \
    X(unreachable)     /* no way to the address, or no answer to the attempt to connect */         \
    X(table_full)      /* closed at once without a byte: no room for another app */                \
    X(connection_lost) /* closed after it had worked */                                            \
    X(timed_out)       /* connected, but no answer in time */                                      \
    X(wrong_key)       /* the answer can't be decrypted with any key at hand */                    \
    X(deactivated)     /* the answer is under the built-in key, which is not to be used */         \
    X(damaged)         /* the answer's CRC is wrong, or its segments are out of order */           \
    X(answer_too_long) /* the answer is, or says that it will be, longer than any gateway's */     \
    X(too_large)       /* the request is longer than gateways accept */                            \
    X(queue_full)      /* the gateway does not take what it is sent, and too much waits already */ \
    X(cancelled)       /* the app closed the connection */

enum class error_kind {
#define LAN_CLIENT_ERROR_KIND(kind) kind,
    LAN_CLIENT_ERROR_KINDS(LAN_CLIENT_ERROR_KIND)
#undef LAN_CLIENT_ERROR_KIND
};

struct error {
    error_kind kind = error_kind::none;
    std::string detail; /**< text of the system, may be empty */

    explicit operator bool() const { return kind != error_kind::none; }
};

/** A short name for machines, such as "timed_out". */
[[nodiscard]] const char *error_name(error_kind kind);

} // namespace lan_client
