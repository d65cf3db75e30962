#include <unistd.h>

#include "launcher/start_turn.h"
#include "launcher/teravolant_app.h"
#include "support/logger.h"
#include "support/settings_manager.h"

namespace teravolant {

void TeravolantApp::launchTeravolant() {
    Logger& logger = Logger::sharedInstance();
    if (geteuid() == 0) {
        logger.logMessage("INFO: root user is not allowed to run the Teravolant client!.");
        return;
    }
    logger.logMessage("launchTeravolant");
    if (!clientExecPath) {
        return;
    }
    takeTurn();  // A command to a running client has ended it.
    if (clientState != 3) {
        runCommand("mkdir '%s'", clientFolder.get());
        runCommand("tar xzf '%s/../Resources/client.tar.gz' -C '%s'", launcherDir.get(),
                   clientFolder.get());
        SettingsManager::sharedInstance().setUserSetting("true", "forceSetupInstall");
    }
    appendLaunchArguments();
    runCommand("open -a '%s' --args %s", clientAppPath.get(), clientArguments());
    endTurn();
}

void TeravolantApp::sendTeravolantCommand(const char* command) {
    Logger& logger = Logger::sharedInstance();
    if (geteuid() == 0) {
        logger.logMessage(
            "INFO: [sendTeravolantCommand] root user is not allowed to run the Teravolant "
            "client!.");
        return;
    }
    logger.logMessage("sendTeravolantCommand");
    if (!clientExecPath) {
        return;
    }
    runCommand("'%s/Contents/MacOS/teravolant' %s", clientAppPath.get(),
               command == nullptr ? "" : command);
}

}  // namespace teravolant
