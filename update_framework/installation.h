#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace teravolant::platform {

class Bundle;

/// What decides which updates a bundle takes.
struct Installation {
    std::string bundleIdentifier;
    std::string bundleVersion;
    std::vector<std::string> publicKeys = {};  ///< Ed25519, base64.
    /// When the bundle was built: the present can't be earlier, whatever the clock shows.
    std::chrono::sys_seconds buildTime = {};
    /// The user has set another feed, which may offer builds of both channels.
    bool acceptsBothChannels = false;
};

/// Reads CFBundleIdentifier, CFBundleShortVersionString, the strings of TVUpdatePublicKeys and the
/// date TVBuildTime. Missing entries are empty, or 1970.
[[nodiscard]] Installation installationOf(const Bundle& bundle);

}  // namespace teravolant::platform
