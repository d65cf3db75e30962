#include <unistd.h>

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
    if (clientState != 3) {
        runCommand("mkdir '%s'", clientFolder.get());
        runCommand("tar xzf '%s/../Resources/client.tar.gz' -C '%s'", launcherDir.get(),
                   clientFolder.get());
        SettingsManager::sharedInstance().setUserSetting("true", "forceSetupInstall");
    }
    appendClientArgument(std::string(" -unpackapp ") + launcherDir.get() + "/teravolant");
    if (initParamsUpdated) {
        appendClientArgument(" --launchstartup on");
    }
    if (launchedAtLogin) {
        appendClientArgument(" --minimized");
    }
    runCommand("open -a '%s' --args %s", clientAppPath.get(), clientArgs.get());
}

/// All or nothing. The count, not the text, decides: it is past the buffer's size when the
/// launcher's own arguments did not all fit.
void TeravolantApp::appendClientArgument(const std::string& text) {
    const auto length = static_cast<std::int32_t>(text.size());
    if (clientArgsLength + length < static_cast<std::int32_t>(kClientArgsSize)) {
        // The count is the length of the text that is there: all pieces before this one fitted.
        text.copy(clientArgs.get() + clientArgsLength, text.size());
        clientArgsLength += length;
    }
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
