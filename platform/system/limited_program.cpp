// How it works: the program's end and the end of its output are two events, because a process that
// it started can keep the output open. A descriptor of the process (pidfd_open) lets one poll wait
// for both; on a kernel without pidfd_open, the process is checked every 10 ms. The process is
// reaped last: until then, no other process group can get its number.
//
// Landlock restricts a thread and the processes that this thread starts. So a separate thread
// restricts itself and starts the program.
#include "platform/system/limited_program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <system_error>
#include <thread>

#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/system/landlock.h"
#include "platform/system/spawn.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostOutput = std::size_t{64} * 1024;

Result<pid_t> spawn(const fs::path& executable, const std::vector<std::string>& arguments,
                    std::vector<std::string> environment, int output) {
    SpawnSettings settings;
    auto* const actions = &settings.actions;
    posix_spawn_file_actions_addopen(actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(actions, output, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(actions, STDERR_FILENO + 1);
    posix_spawn_file_actions_addchdir_np(actions, "/");
    settings.detach();
    std::vector<char*> pointers;
    pointers.reserve(environment.size() + 1);
    for (std::string& variable : environment) {
        pointers.push_back(variable.data());
    }
    pointers.push_back(nullptr);
    return spawnProgram(executable, arguments, settings, pointers.data());
}

/// Starts the program from a thread that can change files only below the folder.
Result<pid_t> spawnRestricted(const fs::path& executable, const std::vector<std::string>& arguments,
                              const ProgramLimits& limits, int output) {
    const FileDescriptor folder(
        open(limits.writableFolder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        return writeError(errno, limits.writableFolder.native());
    }
    Result<pid_t> child = pid_t{-1};
    const auto start = [&] {
        // Without Landlock, the program runs without this restriction.
        if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0) {
            (void)allowChangesOnlyBelow(folder.get());
        }
        child = spawn(executable, arguments, limits.environment, output);
    };
    try {
        std::thread(start).join();
    } catch (const std::system_error& exception) {
        return errorFromErrno(exception.code().value(), FileAccess::Write,
                              "A thread could not be started");
    }
    return child;
}

/// Appends the bytes in the pipe to `output`, which keeps the last `kMostOutput` bytes. Closes the
/// pipe at its end.
void readAvailable(FileDescriptor& pipe, std::string& output) {
    std::array<char, 4096> chunk{};
    // Bounded: a program can write faster than this loop reads.
    for (std::size_t total = 0; total < kMostOutput && pipe;) {
        const ssize_t count = read(pipe.get(), chunk.data(), chunk.size());
        if (count < 0 && errno == EAGAIN) {
            break;
        }
        if (count == 0 || (count < 0 && errno != EINTR)) {
            pipe.reset();
        }
        const auto size = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        output.append(chunk.data(), size);
        total += size;
    }
    if (output.size() > kMostOutput) {
        output.erase(0, output.size() - kMostOutput);
    }
}

/// Whether the child has ended. Does not reap it.
bool hasEnded(pid_t child) {
    siginfo_t information{};
    return waitid(P_PID, static_cast<id_t>(child), &information, WEXITED | WNOHANG | WNOWAIT) !=
               0 ||
           information.si_pid != 0;
}

/// Reads the output until the program ends. Returns false if it does not end in time.
bool readUntilEnd(pid_t child, FileDescriptor& pipe, Clock::time_point end, std::string& output) {
    const FileDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
    while (true) {
        const bool ended = hasEnded(child);
        readAvailable(pipe, output);
        if (ended) {
            return true;
        }
        auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0) {
            return false;
        }
        left = process ? left : std::min<decltype(left)>(left, 10);
        pollfd events[] = {{.fd = pipe.get(), .events = POLLIN, .revents = 0},
                           {.fd = process.get(), .events = POLLIN, .revents = 0}};
        poll(events, std::size(events), static_cast<int>(left));
    }
}

}  // namespace

std::vector<std::string> ownEnvironmentWith(const std::vector<std::string>& variables) {
    std::vector<std::string> result = variables;
    for (char* const* entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view own = *entry;
        const std::string name(own.substr(0, own.find('=') + 1));
        const bool isReplaced = std::ranges::any_of(
            variables, [&](const std::string& variable) { return variable.starts_with(name); });
        if (!isReplaced) {
            result.emplace_back(own);
        }
    }
    return result;
}

Result<EndedProgram> runLimited(const fs::path& executable,
                                const std::vector<std::string>& arguments,
                                const ProgramLimits& limits) {
    const auto end = Clock::now() + limits.patience;
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return errorFromErrno(errno, FileAccess::Write, "A pipe could not be created");
    }
    FileDescriptor pipe(ends[0]);
    FileDescriptor input(ends[1]);
    fcntl(pipe.get(), F_SETFL, O_NONBLOCK);
    const auto child = limits.writableFolder.empty()
                           ? spawn(executable, arguments, limits.environment, input.get())
                           : spawnRestricted(executable, arguments, limits, input.get());
    input.reset();
    if (!child) {
        return child.error();
    }
    EndedProgram program;
    program.timedOut = !readUntilEnd(*child, pipe, end, program.output);
    kill(-*child, SIGKILL);
    const auto status = waitForEnd(*child, std::chrono::seconds(1));
    if (status && !program.timedOut && WIFEXITED(*status)) {
        program.exitStatus = WEXITSTATUS(*status);
    }
    if (status && !program.timedOut && WIFSIGNALED(*status)) {
        program.signal = WTERMSIG(*status);
    }
    return program;
}

}  // namespace teravolant::platform
