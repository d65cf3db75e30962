#include "platform/system/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <system_error>

#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/files.h"
#include "platform/system/bundle.h"

// How it works: `runToEndOfOutput` and `launchDetached` start programs with posix_spawn, which
// needs no shell, does not copy the address space and reports a failed exec to the caller. The
// first gives the program a pipe as its standard output, the second a session and standard streams
// of its own.
//
// `runShellCommand` uses `system`, which ignores SIGINT and SIGQUIT in the caller while it waits.
// Ctrl-C sends SIGINT to both processes, and the caller misses it. The status of the command shows
// whether SIGINT ended it: directly, or as the shell's exit status 128 + SIGINT.
//
// `ProcessListing` changes the environment, standard output and the signal mask of this process,
// because the children of `system` and `popen` inherit them.
//
// `processesRunning` compares the link /proc/PID/exe, which the kernel keeps up to date when the
// file is moved, with the path of the executable, and reads the arguments from /proc/PID/cmdline.
namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

/// The descriptors, the session, the signals and the working directory of a new process.
class SpawnSettings {
  public:
    SpawnSettings() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
};

Status spawn(const fs::path& executable, const std::vector<std::string>& arguments,
             const SpawnSettings& settings, pid_t& child) {
    std::vector<char*> argumentVector = {const_cast<char*>(executable.c_str())};
    for (const std::string& argument : arguments) {
        argumentVector.push_back(const_cast<char*>(argument.c_str()));
    }
    argumentVector.push_back(nullptr);
    const int failure = posix_spawn(&child, executable.c_str(), &settings.actions,
                                    &settings.attributes, argumentVector.data(), environ);
    if (failure == 0) {
        return std::nullopt;
    }
    return errorFromErrno(failure, FileAccess::Write,
                          quoted(executable.native()) + " could not be started");
}

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

std::vector<std::string> splitAtNul(std::string_view text) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const std::size_t end = text.find('\0');
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
    return parts;
}

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

void restoreEnvironment(const char* name, const std::optional<std::string>& value) {
    if (value) {
        setenv(name, value->c_str(), 1);
    } else {
        unsetenv(name);
    }
}

bool endedByInterrupt(int status) {
    constexpr int kShellStatusOfSignals = 128;
    return WIFSIGNALED(status)
               ? WTERMSIG(status) == SIGINT
               : WIFEXITED(status) && WEXITSTATUS(status) == kShellStatusOfSignals + SIGINT;
}

}  // namespace

TaskResult runToEndOfOutput(const fs::path& executable, const std::vector<std::string>& arguments) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return {{}, errorFromErrno(errno, FileAccess::Write, "A pipe could not be created")};
    }
    const FileDescriptor output(ends[0]);
    FileDescriptor input(ends[1]);

    SpawnSettings settings;
    posix_spawn_file_actions_adddup2(&settings.actions, input.get(), STDOUT_FILENO);
    pid_t child = 0;
    auto launchError = spawn(programOnThisMachine(executable), arguments, settings, child);
    input.reset();
    if (launchError) {
        return {{}, std::move(launchError)};
    }
    std::string text = readToEnd(output.get());
    // The program may still be running after it closed its output. Do not wait for it: init reaps
    // it after this process has ended.
    waitpid(child, nullptr, WNOHANG);
    return {std::move(text), std::nullopt};
}

int runShellCommand(const char* command) {
    const int status = std::system(command);
    if (status != -1 && endedByInterrupt(status)) {
        (void)std::raise(SIGINT);
    }
    return status;
}

struct ProcessListing::Before {
    std::optional<std::string> locale = environmentValue("LC_ALL");
    std::optional<std::string> columns = environmentValue("COLUMNS");
    FileDescriptor standardOutput{fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)};
    sigset_t signals{};
};

ProcessListing::ProcessListing() : _before(std::make_unique<Before>()) {
    // Outside a UTF-8 locale, `ps` replaces non-ASCII characters. With COLUMNS, it truncates lines
    // even in a pipe.
    setenv("LC_ALL", "C.UTF-8", 1);
    unsetenv("COLUMNS");
    if (const FileDescriptor null(open("/dev/null", O_WRONLY | O_CLOEXEC));
        !null || !_before->standardOutput || dup2(null.get(), STDOUT_FILENO) < 0) {
        _before->standardOutput.reset();
    }
    // A list that a signal cuts short would look as if no process was running.
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
        sigaddset(&held, signal);
    }
    pthread_sigmask(SIG_BLOCK, &held, &_before->signals);
}

ProcessListing::~ProcessListing() {
    if (_before->standardOutput) {
        dup2(_before->standardOutput.get(), STDOUT_FILENO);
    }
    restoreEnvironment("LC_ALL", _before->locale);
    restoreEnvironment("COLUMNS", _before->columns);
    pthread_sigmask(SIG_SETMASK, &_before->signals, nullptr);
}

Status launchDetached(const fs::path& executable, const std::vector<std::string>& arguments) {
    SpawnSettings settings;
    posix_spawn_file_actions_addopen(&settings.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&settings.actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&settings.actions, STDOUT_FILENO, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&settings.actions, STDERR_FILENO + 1);
    posix_spawn_file_actions_addchdir_np(&settings.actions, "/");
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&settings.attributes, &none);
    posix_spawnattr_setsigdefault(&settings.attributes, &all);
    posix_spawnattr_setflags(&settings.attributes,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t child = 0;
    return spawn(executable, arguments, settings, child);
}

std::vector<RunningProcess> processesRunning(const fs::path& executable) {
    std::vector<RunningProcess> running;
    std::error_code failure;
    std::error_code unreadable;
    for (fs::directory_iterator entry("/proc", unreadable); !unreadable && entry != fs::end(entry);
         entry.increment(unreadable)) {
        const std::string name = entry->path().filename();
        int identifier = 0;
        const auto [end, error] =
            std::from_chars(name.data(), name.data() + name.size(), identifier);
        if (error != std::errc() || end != name.data() + name.size()) {
            continue;
        }
        if (fs::read_symlink(entry->path() / "exe", failure) != executable) {
            continue;
        }
        const auto commandLine = contentsOfFile(entry->path() / "cmdline");
        running.push_back(
            {identifier, commandLine ? splitAtNul(*commandLine) : std::vector<std::string>()});
    }
    return running;
}

}  // namespace teravolant::platform
