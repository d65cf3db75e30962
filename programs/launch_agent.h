#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"

// Launch agents, and the files that register their jobs for a start by the desktop or by the user's
// service manager. The user can switch off each such file by a link to /dev/null or by emptying it:
// it is then masked.
namespace teravolant::platform {

/// The job of a launch-agent property list.
struct LaunchAgent {
    std::filesystem::path propertyList;         ///< Absolute.
    std::string label;                          ///< A file name.
    std::string displayName;                    ///< For the user, without control characters.
    std::vector<std::string> programArguments;  ///< The first is the program's absolute path.
    std::optional<std::chrono::seconds> startInterval;  ///< Positive.
};

/// Reads a launch-agent property list. The key `TVDisplayName` holds the display name; without it,
/// the label is the display name. Fails if a login entry cannot represent the job.
Result<LaunchAgent> readLaunchAgent(const std::filesystem::path& propertyList);

/// Returns the environment variable by which the launcher recognises that no person started it.
[[nodiscard]] std::string automaticStartMark(const LaunchAgent& agent);

/// Escapes line ends, tabs and backslashes, as values of the type "string" in desktop entries.
[[nodiscard]] std::string escapedString(std::string_view text);

/// Returns the line with which a registration file names the property list.
[[nodiscard]] std::string propertyListLine(const LaunchAgent& agent);

/// Reads the job that a registration file names.
Result<LaunchAgent> agentOfRegistration(const std::filesystem::path& file);

[[nodiscard]] bool isMasked(const std::filesystem::path& file);

/// Atomically and durably replaces a registration file and creates its folder. Leaves a masked file
/// unchanged.
Status writeRegistration(const std::filesystem::path& file, std::string_view text);

/// Durably removes a registration file or a link, if it exists. Leaves a masked file unchanged.
Status removeRegistration(const std::filesystem::path& file);

}  // namespace teravolant::platform
