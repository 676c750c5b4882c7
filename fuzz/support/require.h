// How a fuzz target says that something is not as it should be.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzz {

/** Ends the run as a finding unless it holds; `expected` is read after "expected ". */
inline void require(bool holds, const char *expected) {
    if (!holds) {
        std::fprintf(stderr, "expected %s\n", expected);
        std::abort();
    }
}

} // namespace fuzz
