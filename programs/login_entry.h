#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

/// The job of a launch-agent property list.
struct LaunchAgent {
    std::string label;
    std::vector<std::string> programArguments;  ///< Never empty. The first is the program's path.
};

/// Reads a launch-agent property list. Fails if a login entry cannot represent its job.
Result<LaunchAgent> readLaunchAgent(const std::filesystem::path& propertyList);

/// Returns the path of the login entry of the job with that label, which need not exist: a desktop
/// entry in the autostart directory that freedesktop.org defines.
[[nodiscard]] std::filesystem::path loginEntryPath(std::string_view label);

/// Returns the text of the login entry (a Desktop Entry 1.5 of freedesktop.org). It
/// starts the job's program with `DESKTOP_AUTOSTART_ID` set to the label. The session ignores it if
/// the program is not installed. It names the property list, from which `agentOfLoginEntry` reads
/// the job.
[[nodiscard]] std::string loginEntryText(const LaunchAgent& agent,
                                         const std::filesystem::path& propertyList);

/// Reads the job of the existing login entry with that label.
Result<LaunchAgent> agentOfLoginEntry(std::string_view label);

}  // namespace teravolant::platform
