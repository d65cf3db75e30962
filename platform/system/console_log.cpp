#include "platform/system/console_log.h"

#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <string>

#include "platform/core/local_time.h"

namespace teravolant::platform {
namespace {

bool isOff = false;

const std::string& nameOfThisProcess() {
    static const std::string& name = *new std::string(std::string(program_invocation_short_name) +
                                                      "[" + std::to_string(getpid()) + "] ");
    return name;
}

}  // namespace

void switchConsoleLogOff() { isOff = true; }

void logToConsole(std::string_view message) {
    if (isOff) {
        return;
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    // With leading zeros. The first digit is not printed.
    const std::string milliseconds = std::to_string(1000 + now.tv_nsec / 1'000'000);
    std::string line;
    line.reserve(message.size() + 128);
    line.append(localTimeText(now.tv_sec)).append(".").append(milliseconds, 1).append(" ");
    line.append(nameOfThisProcess()).append(message).append("\n");
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace teravolant::platform
