#pragma once

#include <cstdio>
#include <cstdlib>

namespace teravolant::fuzz {

/// Aborts the process if the property does not hold: libFuzzer then saves the input.
inline void require(bool holds, const char* property) {
    if (!holds) {
        std::fprintf(stderr, "Does not hold: %s\n", property);
        std::abort();
    }
}

}  // namespace teravolant::fuzz
