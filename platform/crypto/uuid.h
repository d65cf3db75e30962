#pragma once

#include <string>

namespace teravolant::platform {

/// A new random UUID (RFC 9562, version 4) as its canonical text of 36 characters, in upper case.
[[nodiscard]] std::string randomUuid();

}  // namespace teravolant::platform
