#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "platform/core/result.h"
#include "programs/launch_agent.h"

namespace teravolant::platform {

/// Returns the text of a login entry (a Desktop Entry 1.0 of freedesktop.org). It starts the job's
/// program with the mark of an automatic start. The session ignores it if the program is not
/// installed. `switchedOff` holds the lines that switch it off.
[[nodiscard]] std::string loginEntryText(const LaunchAgent& agent, std::string_view switchedOff);

/// Returns the lines of a login entry with which a desktop's settings switch it off, or an empty
/// text if it is on.
[[nodiscard]] std::string switchedOffLines(std::string_view entry);

/// The login entry of a job, which need not exist: a desktop entry in the autostart folder that
/// freedesktop.org defines.
class LoginEntry {
  public:
    explicit LoginEntry(const std::string& label);

    [[nodiscard]] const std::filesystem::path& path() const { return _path; }
    [[nodiscard]] bool isSwitchedOff() const;

    /// Creates or replaces the entry. If it is switched off, keeps the lines that do it.
    Status write(const LaunchAgent& agent, bool isSwitchedOff) const;

  private:
    std::filesystem::path _path;
};

}  // namespace teravolant::platform
