// The two ways in which the gateway says no to whoever operates it.
#pragma once

#include <stdexcept>

namespace gateway {

/** What was given can never be right: an unknown name, a malformed value, a faulty file. */
class usage_error : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** What was asked for is well formed, but the gateway's state or its disk does not allow it. */
class refused : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace gateway
