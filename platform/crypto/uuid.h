#pragma once

#include <string>

namespace teravolant::platform {

/// Returns a new random UUID (RFC 9562, version 4) in the canonical form of 36 characters, upper
/// case.
[[nodiscard]] std::string randomUuid();

}  // namespace teravolant::platform
