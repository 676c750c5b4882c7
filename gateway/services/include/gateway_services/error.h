// The two kinds of refusal that the gateway gives to its operator and its apps.
#pragma once

#include "support/input_error.h"

#include <stdexcept>

namespace gateway {

/** What was given can never be right: an unknown name, a malformed value, a faulty file. */
using usage_error = support::input_error;

/** The request is well formed, but the gateway's state or its disk does not allow it. */
class refused : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace gateway
