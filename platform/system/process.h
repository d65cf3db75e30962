#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

struct TaskResult {
    std::string standardOutput;
    Status launchError;  ///< Why the program was not started.
};

/// Starts a program without a shell and reads its standard output to the end: blocks until the
/// program and every process that inherited the output have closed it. The program shares the
/// caller's standard input and error. Its exit status is ignored.
///
/// If `executable` does not exist and the main bundle's Helpers folder has a program of that name,
/// starts that program instead.
TaskResult runToEndOfOutput(const std::filesystem::path& executable,
                            const std::vector<std::string>& arguments);

/// Runs a command with the shell, blocks until it ends and returns its status as `system` does.
///
/// During the command, the caller ignores SIGINT. If SIGINT ends the command, raises SIGINT in the
/// caller as well.
int runShellCommand(const char* command);

/// Prepares the process for shell commands that read the list of processes, for its lifetime:
/// - `ps` prints complete paths in UTF-8 (`LC_ALL` is C.UTF-8, and `COLUMNS` is unset).
/// - Standard output is /dev/null, so that a closed one does not make a command fail. It stays
///   unchanged if no descriptor is free.
/// - SIGINT, SIGQUIT, SIGTERM and SIGHUP are blocked, in this process and in the commands.
///
/// The destructor restores all of it. Main thread only, while no other thread runs.
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

/// Starts a program that outlives the caller: in a new session, with the working directory "/",
/// with /dev/null as its standard streams, without other inherited descriptors, and with the
/// default signal actions and mask. Fails if the program cannot be executed.
[[nodiscard]] Status launchDetached(const std::filesystem::path& executable,
                                    const std::vector<std::string>& arguments);

struct RunningProcess {
    int processIdentifier = 0;
    std::vector<std::string> arguments;  ///< Including the program's name.
};

/// Returns the processes whose executable is `executable`, a real path. Skips processes that the
/// user may not inspect.
[[nodiscard]] std::vector<RunningProcess> processesRunning(const std::filesystem::path& executable);

}  // namespace teravolant::platform
