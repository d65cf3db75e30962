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

/// Returns the name of the processor's architecture, for example "x86_64".
[[nodiscard]] std::string processorName();

}  // namespace teravolant::platform
