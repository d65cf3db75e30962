#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

/// How a program that `runLimited` started ended.
struct EndedProgram {
    std::optional<int> exitStatus;  ///< Empty after a signal or a timeout.
    bool timedOut = false;
    int signal = 0;      ///< The signal that killed it, other than for the timeout; else 0.
    std::string output;  ///< Standard output and error together: the last 64 KiB of them.
};

struct ProgramLimits {
    std::chrono::milliseconds patience;    ///< How long the program may run.
    std::vector<std::string> environment;  ///< "NAME=VALUE": the whole environment.
    /// Unless empty: where the kernel has Landlock, the program can change files only below this
    /// folder. It can also write to /dev/null.
    std::filesystem::path writableFolder = {};
};

/// Returns the environment of this process with the given variables, "NAME=VALUE", instead of its
/// own ones of the same names.
[[nodiscard]] std::vector<std::string> ownEnvironmentWith(
    const std::vector<std::string>& variables);

/// Starts a program and blocks until it ends. Kills it after `patience`.
///
/// The program runs in a new session, with /dev/null as its standard input, the working directory
/// "/" and no other inherited descriptor. When the program ends or `patience` is over, all
/// processes of its process group are killed. Fails if the program cannot be started. May be called
/// from any thread.
Result<EndedProgram> runLimited(const std::filesystem::path& executable,
                                const std::vector<std::string>& arguments,
                                const ProgramLimits& limits);

}  // namespace teravolant::platform
