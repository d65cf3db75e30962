#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

struct TaskResult {
    std::string standardOutput;
    Status launchError;
};

/// Starts a program without a shell and reads its standard output until everybody who inherited it
/// has closed it; blocks until then. Standard input and error are the caller's own. The program's
/// exit status is not looked at. When the executable is not on the machine and the main bundle's
/// Helpers folder has one of that name, that one runs.
TaskResult runToEndOfOutput(const std::filesystem::path& executable,
                            const std::vector<std::string>& arguments);

/// Runs a command with the shell, blocks until it ends and answers its status as `system` does.
///
/// Meanwhile Ctrl-C reaches the command alone. When the command ends of it, the signal is raised
/// here as well, so that it ends the command and is a request to this process, too.
int runShellCommand(const char* command);

/// While it lives, shell commands started from here can rely on the process list: it shows paths
/// whole and in UTF-8, what a command prints to this process's standard output goes to /dev/null,
/// so that it does not fail for that one's sake, and the signals of a terminal and of a termination
/// wait, here and in the commands. A standard output that can't be exchanged for want of
/// descriptors stays. Main thread only, while it is the only one.
class ProcessListing {
  public:
    ProcessListing();
    ~ProcessListing();
    ProcessListing(const ProcessListing&) = delete;
    ProcessListing& operator=(const ProcessListing&) = delete;

  private:
    struct Before;
    std::unique_ptr<Before> _before;
};

/// Starts a program in a session of its own with no tie to this one: it outlives the caller, its
/// working directory is "/", it inherits no open file, and it neither reads from nor writes to the
/// caller's terminal. Reports a program that can't be executed; what happens to it later can't be
/// known.
[[nodiscard]] Status launchDetached(const std::filesystem::path& executable,
                                    const std::vector<std::string>& arguments);

struct RunningProcess {
    int processIdentifier = 0;
    std::vector<std::string> arguments;  ///< The program's own name included.
};

/// The processes whose executable is that very file, as far as the current user may see that.
[[nodiscard]] std::vector<RunningProcess> processesRunning(const std::filesystem::path& executable);

}  // namespace teravolant::platform
