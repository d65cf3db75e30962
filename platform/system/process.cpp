#include "platform/system/process.h"
#include "platform/system/executable_path.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/files/files.h"
#include "platform/system/bundle.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

/// What a new process starts with besides its program: descriptors, session, working directory.
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
    std::vector<char*> words = {const_cast<char*>(executable.c_str())};
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    const int failure = posix_spawn(&child, executable.c_str(), &settings.actions,
                                    &settings.attributes, words.data(), environ);
    if (failure == 0) {
        return std::nullopt;
    }
    return errorFromErrno(failure, FileAccess::Write,
                          "“" + executable.string() + "” could not be started");
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
    std::vector<std::string> words;
    while (!text.empty()) {
        const std::size_t end = text.find('\0');
        words.emplace_back(text.substr(0, end));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
    return words;
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

bool endedOfInterrupt(int status) {
    constexpr int kShellsStatusForSignals = 128;
    return WIFSIGNALED(status)
               ? WTERMSIG(status) == SIGINT
               : WIFEXITED(status) && WEXITSTATUS(status) == kShellsStatusForSignals + SIGINT;
}

}  // namespace

TaskResult runToEndOfOutput(const fs::path& executable, const std::vector<std::string>& arguments) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return {{}, errorFromErrno(errno, FileAccess::Write, "No pipe could be made")};
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
    // Nobody waits for a program that closed its output and runs on, or has not quite ended yet:
    // what is left of it is collected by the system when this process ends.
    waitpid(child, nullptr, WNOHANG);
    return {std::move(text), std::nullopt};
}

int runShellCommand(const char* command) {
    const int status = std::system(command);
    if (status != -1 && endedOfInterrupt(status)) {
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
    // In other locales `ps` replaces what is not ASCII; with COLUMNS it cuts lines even in a pipe.
    setenv("LC_ALL", "C.UTF-8", 1);
    unsetenv("COLUMNS");
    if (const FileDescriptor null(open("/dev/null", O_WRONLY | O_CLOEXEC));
        !null || !_before->standardOutput || dup2(null.get(), STDOUT_FILENO) < 0) {
        _before->standardOutput.reset();
    }
    // A list that a signal cuts short would say that nothing runs.
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
