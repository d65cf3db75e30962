#pragma once

#include <spawn.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

/// The descriptors, the session, the signals and the working directory of a new process.
class SpawnSettings {
  public:
    SpawnSettings();
    ~SpawnSettings();
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    /// Starts the process in a new session, with the default signal actions and mask.
    void detach();

    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
};

/// Starts a program, searched for in `PATH` if its name has no slash. `environment` is a vector of
/// "NAME=VALUE" with a null at its end, like `environ`. Returns the process id of the child, which
/// the caller reaps. Fails if the program cannot be executed.
[[nodiscard]] Result<pid_t> spawnProgram(const std::filesystem::path& executable,
                                         const std::vector<std::string>& arguments,
                                         const SpawnSettings& settings, char* const* environment);

/// Blocks until the child process ends and reaps it. Returns its wait status, or nothing if it is
/// not a child of the caller.
std::optional<int> waitForEnd(pid_t child);

/// The same, but blocks at most for the given time. Returns nothing if the process still exists:
/// even SIGKILL does not end a process that waits for a dead network file system.
std::optional<int> waitForEnd(pid_t child, std::chrono::milliseconds patience);

}  // namespace teravolant::platform
