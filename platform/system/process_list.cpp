#include "platform/system/process_list.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "platform/core/deleter.h"
#include "platform/core/file_error.h"
#include "platform/files/files.h"

// How it works: the kernel has a directory /proc/PID for each process. The link `exe` in it is the
// real path of the executable, also after the file was moved. The kernel hides the link of another
// user's process, and of a process of the same user that may not be traced. The directory of the
// latter belongs to root; its user is in the file `status`.
namespace teravolant::platform {
namespace {

std::string processPath(int identifier, const char* name) {
    return "/proc/" + std::to_string(identifier) + "/" + name;
}

/// Returns the real user id of the process.
std::optional<uid_t> userOf(int identifier) {
    const auto status = contentsOfFile(processPath(identifier, "status"));
    const std::size_t line = status ? status->find("\nUid:") : std::string::npos;
    unsigned user = 0;
    if (line == std::string::npos || std::sscanf(status->c_str() + line, " Uid: %u", &user) != 1) {
        return std::nullopt;
    }
    return user;
}

/// Returns the first argument of a process whose executable is hidden; an empty text for a process
/// of the kernel or of another user.
std::string firstArgumentOf(int identifier) {
    struct stat directory {};
    if (stat(processPath(identifier, "").c_str(), &directory) != 0 ||
        (directory.st_uid != getuid() && directory.st_uid != 0)) {
        return {};
    }
    auto arguments = argumentsOf(identifier);
    const bool isOwn = !arguments.empty() && userOf(identifier) == getuid();
    return isOwn ? std::move(arguments.front()) : std::string();
}

std::string executableOf(int identifier) {
    std::array<char, PATH_MAX> target{};
    const ssize_t size =
        readlink(processPath(identifier, "exe").c_str(), target.data(), target.size());
    return size > 0 ? std::string(target.data(), static_cast<std::size_t>(size))
                    : firstArgumentOf(identifier);
}

}  // namespace

Result<std::vector<RunningProcess>> runningProcesses() {
    const std::unique_ptr<DIR, Deleter<closedir>> directory(opendir("/proc"));
    std::vector<RunningProcess> processes;
    errno = directory ? 0 : errno;
    while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
        // Other entries of /proc are not numbers.
        if (const int identifier = std::atoi(entry->d_name); identifier > 0) {
            if (std::string executable = executableOf(identifier); !executable.empty()) {
                processes.push_back({identifier, std::move(executable)});
            }
        }
        errno = 0;
    }
    if (errno != 0) {
        return readError(errno, "/proc");
    }
    return processes;
}

std::vector<std::string> argumentsOf(int processIdentifier) {
    std::vector<std::string> arguments;
    const auto text = contentsOfFile(processPath(processIdentifier, "cmdline"));
    for (std::size_t begin = 0; text && begin < text->size();
         begin += arguments.back().size() + 1) {
        arguments.emplace_back(text->c_str() + begin);
    }
    return arguments;
}

}  // namespace teravolant::platform
