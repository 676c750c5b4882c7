// Text from the network made safe to show; see support/escape.h.
#pragma once

#include "support/escape.h"

namespace engr_app {

using support::escape_for_terminal;
using support::text_columns;

} // namespace engr_app
