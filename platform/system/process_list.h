#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

struct RunningProcess {
    int processIdentifier = 0;
    /// The real path of the executable, raw bytes. Ends with " (deleted)" if the file was deleted.
    std::string executable;
};

/// Returns the running processes, without those of the kernel.
///
/// The executable's path of some processes is hidden, for example if the user may execute but not
/// read the file. For such a process of this user, `executable` is its first argument. Such a
/// process of another user is left out, because its first argument could be a lie. Fails if the
/// list cannot be read.
Result<std::vector<RunningProcess>> runningProcesses();

/// Returns the arguments of a process, including the program's name, or nothing if it has ended.
[[nodiscard]] std::vector<std::string> argumentsOf(int processIdentifier);

}  // namespace teravolant::platform
