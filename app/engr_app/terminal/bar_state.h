// A bar as the screen keeps it; guarded by the screen's mutex.
#pragma once

#include "terminal/progress_bar.h"

#include <chrono>

namespace engr_app {

struct bar_state {
    using clock = std::chrono::steady_clock;

    bar_figures figures;
    clock::time_point started = clock::now();
    clock::time_point drawn = started;    ///< the last time that it was shown
    clock::time_point measured = started; ///< the last time that the rate was
    std::uint64_t measured_done = 0;
    bool written = false; ///< some line of it stands in the output
};

} // namespace engr_app
