#include "platform/system/process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/files.h"
#include "platform/system/bundle.h"
#include "platform/system/spawn.h"

// How it works: `runToEndOfOutput` and `launchDetached` start programs with posix_spawnp, which
// needs no shell, does not copy the address space and reports a failed exec to the caller. The
// first gives the program a pipe as its standard output, the second a session and standard streams
// of its own.
//
// `runShellCommand` uses `system`, which ignores SIGINT and SIGQUIT in the caller while it waits.
// Ctrl-C sends SIGINT to all of them, and the caller misses it. So a shell that SIGINT killed
// counts as Ctrl-C. A program that exits with status 130 (128 + SIGINT) does not: no signal killed
// the shell.
namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

fs::path programOnThisMachine(const fs::path& executable) {
    if (!fileExists(executable)) {
        fs::path helper = Bundle::mainBundle().helpersPath() / executable.filename();
        if (fileExists(helper)) {
            return helper;
        }
    }
    return executable;
}

std::string readToEnd(int descriptor) {
    std::string output;
    std::array<char, 4096> chunk{};
    while (true) {
        const ssize_t count = read(descriptor, chunk.data(), chunk.size());
        if (count > 0) {
            output.append(chunk.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            return output;
        }
    }
}

}  // namespace

bool isFaultSignal(int signal) {
    return signal == SIGSEGV || signal == SIGILL || signal == SIGFPE || signal == SIGSYS;
}

TaskResult runToEndOfOutput(const fs::path& executable, const std::vector<std::string>& arguments) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return {{}, errorFromErrno(errno, FileAccess::Write, "A pipe could not be created")};
    }
    const FileDescriptor output(ends[0]);
    FileDescriptor input(ends[1]);

    SpawnSettings settings;
    posix_spawn_file_actions_adddup2(&settings.actions, input.get(), STDOUT_FILENO);
    const auto child = spawnProgram(programOnThisMachine(executable), arguments, settings, environ);
    input.reset();
    if (!child) {
        return {{}, child.error()};
    }
    std::string text = readToEnd(output.get());
    // The program may still be running after it closed its output. Do not wait for it: init reaps
    // it after this process has ended.
    waitpid(*child, nullptr, WNOHANG);
    return {std::move(text), std::nullopt};
}

std::optional<int> runToExit(const fs::path& program, const std::vector<std::string>& arguments) {
    SpawnSettings settings;
    posix_spawn_file_actions_addopen(&settings.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&settings.actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const auto child = spawnProgram(program, arguments, settings, environ);
    const auto status = child ? waitForEnd(*child) : std::nullopt;
    return status && WIFEXITED(*status) ? std::optional(WEXITSTATUS(*status)) : std::nullopt;
}

int runShellCommand(const char* command) {
    const int status = std::system(command);
    if (status != -1 && WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) {
        (void)std::raise(SIGINT);
    }
    return status;
}

BlockedSignals::BlockedSignals() {
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
        sigaddset(&blocked, signal);
    }
    pthread_sigmask(SIG_BLOCK, &blocked, &_before);
}

BlockedSignals::~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &_before, nullptr); }

Status replaceProcess(const fs::path& executable, char* const* argv) {
    execv(executable.c_str(), argv);
    return errorFromErrno(errno, FileAccess::Read,
                          quoted(executable.native()) + " could not be started");
}

Status launchDetached(const fs::path& executable, const std::vector<std::string>& arguments) {
    SpawnSettings settings;
    posix_spawn_file_actions_addopen(&settings.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&settings.actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&settings.actions, STDOUT_FILENO, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&settings.actions, STDERR_FILENO + 1);
    posix_spawn_file_actions_addchdir_np(&settings.actions, "/");
    settings.detach();
    const auto child = spawnProgram(executable, arguments, settings, environ);
    return child ? Status() : Status(child.error());
}

}  // namespace teravolant::platform
