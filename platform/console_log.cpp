#include "platform/console_log.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

namespace teravolant::platform {

void logToConsole(std::string_view message) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 32> time{};
    std::strftime(time.data(), time.size(), "%Y-%m-%d %H:%M:%S", &local);
    std::array<char, 128> prefix{};
    std::snprintf(prefix.data(), prefix.size(), "%s.%03ld %s[%d] ", time.data(),
                  now.tv_nsec / 1'000'000, program_invocation_short_name, getpid());

    const std::string line = std::string(prefix.data()).append(message).append("\n");
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace teravolant::platform
