#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/core/result.h"
#include "programs/launch_agent.h"

namespace teravolant::platform {

/// Whether systemd units can represent the job: it has a start interval, its label is a unit name,
/// and systemd accepts the path of its program.
[[nodiscard]] bool canBeTimer(const LaunchAgent& agent);

/// Returns the texts of the units of a job that `canBeTimer` accepts.
[[nodiscard]] std::string serviceUnitText(const LaunchAgent& agent);
[[nodiscard]] std::string timerUnitText(const LaunchAgent& agent);

/// The timer of a job in the user's service manager (systemd), which need not exist: a service unit
/// and a timer unit in the user's configuration, and the link that enables the timer.
///
/// Each request to the service manager blocks for at most ten seconds. After a failed request, an
/// object sends no more, because the manager blocks or does not know the units. systemctl writes
/// the reason to standard error.
class Timer {
  public:
    explicit Timer(const std::string& label);

    /// Whether the user seems to have a service manager. Sets a missing `XDG_RUNTIME_DIR` to the
    /// directory that systemd assigns.
    [[nodiscard]] static bool hasServiceManager();

    /// The files that can record the job.
    [[nodiscard]] std::vector<std::filesystem::path> records() const { return {_service, _timer}; }
    /// Whether the user disabled the timer or masked one of its units.
    [[nodiscard]] bool isSwitchedOff() const;

    /// Creates or replaces the units. Then enables and starts the timer, unless it is switched off.
    /// Returns whether the service manager accepted it. A failure can leave units.
    [[nodiscard]] bool write(const LaunchAgent& agent, bool isSwitchedOff);
    /// Stops the timer, but not a program that it started.
    void stop();
    /// Stops the timer and removes its units, if any exist.
    Status remove();

  private:
    bool createLink() const;
    bool systemctl(std::vector<std::string> arguments);

    std::filesystem::path _service;
    std::filesystem::path _timer;
    std::filesystem::path _link;
    bool _isUsable = true;  ///< False after the service manager failed a request.
};

}  // namespace teravolant::platform
