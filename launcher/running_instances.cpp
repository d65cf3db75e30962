#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "launcher/start_turn.h"
#include "launcher/teravolant_app.h"
#include "platform/core/deleter.h"
#include "platform/system/process.h"
#include "support/logger.h"
#include "support/settings_manager.h"

// How it works: two facts decide how a start treats an existing client, and `clientState` holds one
// bit for each: a client process runs, and the client folder exists. Two shell pipelines read the
// process list: one detects an instance, the other finds the process id for the kill. If the
// instance ends between them, no process is killed.
namespace teravolant {
namespace {

constexpr unsigned char kInstanceRuns = 1;
constexpr unsigned char kFolderExists = 2;

bool isDirectory(const char* path) {
    struct stat status {};
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

/// Runs the command and returns the number at the start of its first output line, or 0 if there is
/// none. Returns nothing if the pipe can't be opened.
std::optional<int> firstNumberFrom(const char* command) {
    const platform::BlockedSignals blocked;
    const std::unique_ptr<std::FILE, platform::Deleter<pclose>> pipe(popen(command, "r"));
    if (!pipe) {
        return std::nullopt;
    }
    std::array<char, 32> line{};
    const bool read = std::fgets(line.data(), line.size(), pipe.get()) != nullptr;
    return read ? std::atoi(line.data()) : 0;
}

}  // namespace

// `ps` is the program of the bundle. Its "exe" column is the real path of the executable: it still
// lists a client whose file was deleted, and it does not list the shell and grep, which have the
// path in their arguments only.
void TeravolantApp::detectClientState() {
    clientState = isDirectory(clientFolder.get()) ? kFolderExists : 0;
    if (!formatCommand("%s '%s'", "ps -ax -o exe= | grep -aFq", clientExecPath.get())) {
        return;
    }
    const platform::BlockedSignals blocked;
    if (platform::runShellCommand(commandBuffer.get()) == 0) {
        clientState |= kInstanceRuns;
    }
}

bool TeravolantApp::resolveClientState(bool checkAndUpdateOnly) {
    Logger& logger = Logger::sharedInstance();
    switch (clientState) {
        case 0:
            if (!checkAndUpdateOnly) {
                logger.logMessage("INFO: brisklink can be launched!");
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
                endTurn();  // The command may run for hours.
                sendTeravolantCommand(setupIsDone ? "--needrestart \"ApplyReleasesWaiting\""
                                                  : nullptr);
            }
            return true;
    }
}

bool TeravolantApp::killFirstInstance() {
    Logger& logger = Logger::sharedInstance();
    if (!formatCommand("ps -ax -o pid=,exe= | grep -aF '%s' | awk '{print($1)}'",
                       clientExecPath.get())) {
        return true;
    }
    logCommand();
    const auto process = firstNumberFrom(commandBuffer.get());
    if (!process) {
        logger.logMessage("ERROR: fail to open a pipe stream to a process!");
        return false;
    }
    if (*process > 0 && formatCommand("kill -9 %d", *process)) {
        logCommand();
        platform::runShellCommand(commandBuffer.get());  // `kill` is part of the shell.
    }
    return true;
}

}  // namespace teravolant
