#pragma once

#include <string>

namespace teravolant::platform {

struct OperatingSystemVersion {
    unsigned majorVersion = 0;
    unsigned minorVersion = 0;
};

/// Returns the first two numbers of the kernel release (`uname -r`), with 0 for a missing one. The
/// version of a distribution is not used, because it does not always have two numbers.
[[nodiscard]] OperatingSystemVersion operatingSystemVersion();

/// Returns the value of the header "User-Agent": program, version, system and architecture.
[[nodiscard]] std::string userAgent(const std::string& program, const std::string& version);

}  // namespace teravolant::platform
