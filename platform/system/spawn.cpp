#include "platform/system/spawn.h"

#include <poll.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>

#include "platform/core/file_error.h"
#include "platform/core/text.h"

namespace teravolant::platform {

SpawnSettings::SpawnSettings() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
}

SpawnSettings::~SpawnSettings() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
}

void SpawnSettings::detach() {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

Result<pid_t> spawnProgram(const std::filesystem::path& executable,
                           const std::vector<std::string>& arguments, const SpawnSettings& settings,
                           char* const* environment) {
    std::vector<char*> argumentVector = {const_cast<char*>(executable.c_str())};
    for (const std::string& argument : arguments) {
        argumentVector.push_back(const_cast<char*>(argument.c_str()));
    }
    argumentVector.push_back(nullptr);
    pid_t child = -1;
    const int failure = posix_spawnp(&child, executable.c_str(), &settings.actions,
                                     &settings.attributes, argumentVector.data(), environment);
    if (failure == 0) {
        return child;
    }
    return errorFromErrno(failure, FileAccess::Write,
                          quoted(executable.native()) + " could not be started");
}

std::optional<int> waitForEnd(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return std::nullopt;
        }
    }
    return status;
}

std::optional<int> waitForEnd(pid_t child, std::chrono::milliseconds patience) {
    constexpr std::chrono::milliseconds kInterval(10);
    for (; patience.count() > 0; patience -= kInterval) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) != 0) {
            return status;
        }
        poll(nullptr, 0, static_cast<int>(kInterval.count()));
    }
    return std::nullopt;
}

}  // namespace teravolant::platform
