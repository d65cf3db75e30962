#pragma once

#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

struct TaskResult {
    std::string standardOutput;
    Status launchError;  ///< Why the program was not started.
};

/// Whether the kernel sends the signal because of a fault of the program that it kills. SIGBUS and
/// SIGABRT can also be the effect of a failing disk or of too little memory.
[[nodiscard]] bool isFaultSignal(int signal);

/// Starts a program without a shell and reads its standard output to the end: blocks until the
/// program and every process that inherited the output have closed it. The program shares the
/// caller's standard input and error. Its exit status is ignored.
///
/// If `executable` does not exist and the main bundle's Helpers folder has a program of that name,
/// starts that program instead.
TaskResult runToEndOfOutput(const std::filesystem::path& executable,
                            const std::vector<std::string>& arguments);

/// Starts a program without a shell, with /dev/null as its standard input and output, and blocks
/// until it ends. A name without a slash is searched for in `PATH`. Returns the exit status, or
/// nothing if the program was not started or a signal killed it.
std::optional<int> runToExit(const std::filesystem::path& program,
                             const std::vector<std::string>& arguments);

/// Runs a command with the shell, blocks until it ends and returns its status as `system` does.
///
/// During the command, the caller ignores SIGINT. If SIGINT kills the shell, as Ctrl-C does, or the
/// program that replaced the shell (`exec`), raises SIGINT in the caller as well. An exit status
/// has no effect.
int runShellCommand(const char* command);

/// Blocks SIGINT, SIGQUIT, SIGTERM and SIGHUP, for its lifetime, in the calling thread and in the
/// programs that it starts.
class BlockedSignals {
  public:
    BlockedSignals();
    ~BlockedSignals();
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

  private:
    sigset_t _before{};
};

/// Replaces the program of this process, in the same environment. `argv` ends with a null. Returns
/// only on failure.
Status replaceProcess(const std::filesystem::path& executable, char* const* argv);

/// Starts a program that outlives the caller: in a new session, with the working directory "/",
/// with /dev/null as its standard streams, without other inherited descriptors, and with the
/// default signal actions and mask. A name without a slash is searched for in `PATH`. Fails if the
/// program cannot be executed.
[[nodiscard]] Status launchDetached(const std::filesystem::path& executable,
                                    const std::vector<std::string>& arguments);

}  // namespace teravolant::platform
