#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace teravolant::platform {

/// Returns unpredictable bytes from the system's random numbers.
[[nodiscard]] std::vector<std::uint8_t> randomBytes(std::size_t count);

}  // namespace teravolant::platform
