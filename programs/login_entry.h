#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

/// What a launch-agent property list says of its job.
struct LaunchAgent {
    std::string label;
    std::vector<std::string> programArguments;  ///< The program's path first; never empty.
};

/// Reads a launch-agent property list; the error says what is wrong with it.
Result<LaunchAgent> readLaunchAgent(const std::filesystem::path& propertyList);

/// The login entry of the job with that label, whether or not it is there: a file as
/// freedesktop.org lays down for autostart, which a desktop session carries out when it begins.
[[nodiscard]] std::filesystem::path loginEntryPath(std::string_view label);

/// The text of the login entry (freedesktop.org's Desktop Entry 1.5). It starts the job's program
/// with `DESKTOP_AUTOSTART_ID` set to the label, is passed over where the program is not installed,
/// and names the property list, from which `agentOfLoginEntry` reads the job again.
[[nodiscard]] std::string loginEntryText(const LaunchAgent& agent,
                                         const std::filesystem::path& propertyList);

/// The job of the loaded entry with that label.
Result<LaunchAgent> agentOfLoginEntry(std::string_view label);

}  // namespace teravolant::platform
