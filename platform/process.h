#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/error.h"

namespace teravolant::platform {

/// The running executable's absolute path without links, as it was on the first call, which belongs
/// at the program's start: the file may be moved under the running program.
[[nodiscard]] const std::filesystem::path& executablePathOfThisProcess();

struct TaskResult {
    std::string standardOutput;
    std::optional<Error> launchError;
};

/// Starts a program without a shell and reads its standard output until everybody who inherited it
/// has closed it; blocks until then. Standard input and error are the caller's own. The program's
/// exit status is not looked at. When the executable is not on the machine and the main bundle's
/// Helpers folder has one of that name, that one runs.
TaskResult runToEndOfOutput(const std::filesystem::path& executable,
                            const std::vector<std::string>& arguments);

/// Starts a program in a session of its own with no tie to this one: it outlives the caller, its
/// working directory is "/", and it neither reads from nor writes to the caller's terminal.
/// Reports a program that can't be executed; what happens to it later can't be known.
[[nodiscard]] std::optional<Error> launchDetached(const std::filesystem::path& executable,
                                                  const std::vector<std::string>& arguments);

struct RunningProcess {
    int processIdentifier = 0;
    std::vector<std::string> arguments;  ///< The program's own name included.
};

/// The processes whose executable is that very file, as far as the current user may see that.
[[nodiscard]] std::vector<RunningProcess> processesRunning(const std::filesystem::path& executable);

}  // namespace teravolant::platform
