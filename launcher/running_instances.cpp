#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "launcher/teravolant_app.h"
#include "platform/system/process.h"
#include "support/logger.h"
#include "support/settings_manager.h"

namespace teravolant {
namespace {

constexpr unsigned char kInstanceRuns = 1;
constexpr unsigned char kFolderExists = 2;

bool isDirectory(const char* path) {
    struct stat status {};
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

/// The number at the start of the command's first line, 0 when there is none; nothing when the
/// pipe from the command can't be opened.
std::optional<int> firstNumberFrom(const char* command) {
    const platform::ProcessListing listing;
    std::FILE* const pipe = popen(command, "r");
    if (pipe == nullptr) {
        return std::nullopt;
    }
    std::array<char, 32> line{};
    const bool read = std::fgets(line.data(), line.size(), pipe) != nullptr;
    pclose(pipe);
    return read ? std::atoi(line.data()) : 0;
}

}  // namespace

// The "exe" column is the executable's real path: a client whose file was deleted still shows, and
// neither the shell nor grep, which have the path among their arguments only, does.
void TeravolantApp::detectClientState() {
    clientState = isDirectory(clientFolder.get()) ? kFolderExists : 0;
    if (!formatCommand("%s '%s'", "ps -ax -o exe= | grep", clientExecPath.get())) {
        return;
    }
    const platform::ProcessListing listing;
    if (platform::runShellCommand(commandBuffer.get()) == 0) {
        clientState |= kInstanceRuns;
    }
}

bool TeravolantApp::resolveClientState(bool checkAndUpdateOnly) {
    Logger& logger = Logger::sharedInstance();
    switch (clientState) {
        case 0:
            if (!checkAndUpdateOnly) {
                logger.logMessage("INFO: brisklink can be launched!.");
            }
            return !checkAndUpdateOnly;
        case kInstanceRuns:
            logger.logMessage(
                "WARNING: a teravolant instance is already running and will be killed!");
            return killFirstInstance();
        case kFolderExists:
            if (!checkAndUpdateOnly) {
                logger.logMessage(
                    "WARNING: the teravolant directory already exists and will be removed!");
                runCommand("rm -rf '%s'", clientFolder.get());
            }
            return !checkAndUpdateOnly;
        default:
            logger.logMessage("WARNING: a teravolant instance is already running!");
            if (!checkAndUpdateOnly) {
                const auto setup =
                    SettingsManager::sharedInstance().getUserSetting("forceSetupInstall", "true");
                const bool setupIsDone = setup == SettingsManager::Value("false");
                sendTeravolantCommand(setupIsDone ? "--needrestart \"ApplyReleasesWaiting\""
                                                  : nullptr);
            }
            return true;
    }
}

/// False only when the process list can't be read. An instance that has ended since is not killed.
bool TeravolantApp::killFirstInstance() {
    Logger& logger = Logger::sharedInstance();
    if (!formatCommand("ps -ax -o pid=,exe= | grep '%s' | awk '{print($1)}'",
                       clientExecPath.get())) {
        return true;
    }
    logCommand();
    const auto process = firstNumberFrom(commandBuffer.get());
    if (!process) {
        logger.logMessage("ERROR: fail to open a pipe stream to a process!");
        return false;
    }
    if (*process > 0) {
        runCommand("kill -9 %d", *process);
    }
    return true;
}

}  // namespace teravolant
