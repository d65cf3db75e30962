#pragma once

#include <cstdio>
#include <cstdlib>

namespace teravolant::fuzz {

/// Ends the process, by which a fuzzer reports its input, unless the property holds.
inline void require(bool holds, const char* property) {
    if (!holds) {
        std::fprintf(stderr, "Does not hold: %s\n", property);
        std::abort();
    }
}

}  // namespace teravolant::fuzz
