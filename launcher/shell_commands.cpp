#include <cstdio>

#include "launcher/teravolant_app.h"
#include "platform/system/process.h"
#include "support/logger.h"

// How it works: `runCommand` lets the program replace the shell. That saves a process, and the
// status then shows whether SIGINT killed the program or the program exited with status 130. The
// client's arguments are shell text and can add further commands to a list; the shell then stays.
namespace teravolant {

bool TeravolantApp::formatCommandFrom(const char* format, std::va_list arguments) {
    const int length = std::vsnprintf(commandBuffer.get(), kCommandSize, format, arguments);
    if (length >= 0 && static_cast<std::size_t>(length) < kCommandSize) {
        return true;
    }
    Logger::sharedInstance().logMessage("ERROR: a command longer than " +
                                        std::to_string(kCommandSize - 1) +
                                        " characters is not run: " + commandBuffer.get());
    return false;
}

bool TeravolantApp::formatCommand(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const bool fits = formatCommandFrom(format, arguments);
    va_end(arguments);
    return fits;
}

void TeravolantApp::runCommand(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const bool fits = formatCommandFrom(format, arguments);
    va_end(arguments);
    if (!fits) {
        return;
    }
    logCommand();
    const std::string command = commandBuffer.get();
    const bool isList = command.find_first_of(";&|\n") != std::string::npos;
    platform::runShellCommand((isList ? command : "exec " + command).c_str());
}

void TeravolantApp::logCommand() const {
    Logger::sharedInstance().logMessage(std::string("Cmd: ") + commandBuffer.get());
}

}  // namespace teravolant
