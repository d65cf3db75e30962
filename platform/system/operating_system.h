#pragma once

namespace teravolant::platform {

struct OperatingSystemVersion {
    unsigned majorVersion = 0;
    unsigned minorVersion = 0;
};

/// The version of the running kernel, the first two numbers of what `uname -r` prints: a
/// distribution's own version need not have two numbers, or any. A number that is missing is 0.
[[nodiscard]] OperatingSystemVersion operatingSystemVersion();

}  // namespace teravolant::platform
