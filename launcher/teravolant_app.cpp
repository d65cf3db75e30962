#include "launcher/teravolant_app.h"

#include <unistd.h>

#include <cstdio>
#include <string_view>

#include "launcher/command_line.h"
#include "launcher/install_parameters.h"
#include "launcher/start_turn.h"
#include "platform/core/error.h"
#include "platform/files/paths.h"
#include "platform/system/application.h"
#include "platform/system/bundle.h"
#include "platform/system/executable_path.h"
#include "platform/system/preferences.h"
#include "support/logger.h"
#include "support/settings_manager.h"
#include "updater/teravolant_app_delegate.h"

namespace teravolant {
namespace {

void logVersion() {
    std::string line = "Teravolant TeravolantApp Unpacker";
    if (const auto version = platform::Bundle::mainBundle().shortVersion()) {
        line += ": Version " + *version;
    }
    Logger::sharedInstance().logMessage(line);
}

/// Writes the directory of the running executable, truncated to the buffer.
void getExecutableDirectory(char* buffer, std::size_t size) {
    const std::string folder = platform::executablePathOfThisProcess().parent_path();
    std::snprintf(buffer, size, "%s", folder.c_str());
}

/// A text and a boolean false read as 0.
std::uint64_t sizeReading(const ArgumentValue& value) {
    if (const auto* integer = std::get_if<std::int64_t>(&value)) {
        return static_cast<std::uint64_t>(*integer);
    }
    return value == ArgumentValue(true) ? 1 : 0;
}

void applyLogSize(const ArgumentDictionary& arguments) {
    constexpr std::string_view kKey = "MAX_LOG_SIZE";
    const auto argument = arguments.find(kKey);
    if (argument == arguments.end()) {
        return;
    }
    Logger& logger = Logger::sharedInstance();
    logger.logMessage(argument->first + ": " + printedForm(argument->second));
    logger.setMaxFileSize(sizeReading(argument->second));
}

/// Only the text "YES" means on; a boolean true means off.
bool autoUpdateIsOn() {
    const auto value =
        SettingsManager::sharedInstance().getSettingForKey("AutoUpdateEnable", "YES");
    const bool on = value == SettingsManager::Value("YES");
    Logger::sharedInstance().logMessage(std::string("Auto update: ") + (on ? "YES" : "NO"));
    return on;
}

}  // namespace

TeravolantApp::TeravolantApp() {
    platform::Application::sharedApplication().setDelegate(TeravolantAppDelegate::initWith(this));
}

TeravolantApp::~TeravolantApp() {
    for (auto* buffer :
         {&clientFolder, &launcherDir, &clientAppPath, &clientExecPath, &commandBuffer}) {
        buffer->reset();
    }
    freeClientArguments();
    platform::Application::sharedApplication().setDelegate(nullptr);
}

int TeravolantApp::run(int argc, char* argv[]) {
    logVersion();
    storeLaunchAgent(LaunchAgentKind::agent, true);

    launcherDir = std::make_unique<char[]>(kPathSize);
    getExecutableDirectory(launcherDir.get(), kPathSize);

    const bool checkAndUpdateOnly = hasOption(argc, argv, "--checkAndUpdateOnly");
    noUpdate = hasOption(argc, argv, "--notupdate");
    const ArgumentDictionary arguments = parseArguments(argc, argv);
    applyLogSize(arguments);

    if (getuid() == 0) {
        Logger::sharedInstance().logMessage("Running as root");
        if (const auto error = platform::UserDefaults::checkAnyUserDirectory()) {
            Logger::sharedInstance().logMessage("ERROR: the choices are not stored: " +
                                                error->localizedDescription);
        }
        writeInstallParameters(arguments);
        return 0;
    }
    if (!autoUpdateIsOn()) {
        noUpdate = true;
    }
    buildClientPaths();

    if (platform::Application::terminationIsRequested()) {
        // No client will be opened: leave the folder and the instances of other starts alone.
        return platform::applicationMain(argc, argv);
    }
    takeTurn();
    commandBuffer = std::make_unique<char[]>(kCommandSize);
    detectClientState();
    if (!resolveClientState(checkAndUpdateOnly)) {
        return 1;
    }
    joinClientArguments(argc, argv);
    return platform::applicationMain(argc, argv);
}

void TeravolantApp::buildClientPaths() {
    const std::string home = platform::homeDirectoryForCurrentUser();
    clientFolder = std::make_unique<char[]>(kPathSize);
    std::snprintf(clientFolder.get(), kPathSize, "%s/.teravolant", home.c_str());
    Logger::sharedInstance().logMessage(std::string("Teravolant Client folder: ") +
                                        clientFolder.get());
    clientAppPath = std::make_unique<char[]>(kPathSize);
    std::snprintf(clientAppPath.get(), kPathSize, "%s%s", clientFolder.get(), "/teravolant.app");
    clientExecPath = std::make_unique<char[]>(kPathSize);
    std::snprintf(clientExecPath.get(), kPathSize, "%s%s", clientAppPath.get(),
                  "/Contents/MacOS/teravolant");
}

}  // namespace teravolant
