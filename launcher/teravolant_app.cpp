#include "launcher/teravolant_app.h"

#include <unistd.h>

#include <cstdio>
#include <string_view>

#include "launcher/command_line.h"
#include "launcher/install_parameters.h"
#include "platform/files/paths.h"
#include "platform/system/application.h"
#include "platform/system/bundle.h"
#include "platform/system/executable_path.h"
#include "platform/system/process.h"
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

/// Writes the folder of the running executable, cut to the buffer.
void getExecutableDirectory(char* buffer, std::size_t size) {
    const std::string folder = platform::executablePathOfThisProcess().parent_path();
    std::snprintf(buffer, size, "%s", folder.c_str());
}

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

/// Only the text "YES" is on; a boolean is not.
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
    for (auto* buffer : {&clientFolder, &launcherDir, &clientAppPath, &clientExecPath,
                         &commandBuffer, &clientArgs}) {
        buffer->reset();
    }
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
        writeInstallParameters(arguments);
        return 0;
    }
    if (!autoUpdateIsOn()) {
        noUpdate = true;
    }
    buildClientPaths();

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

/// Joins the words behind the program's path, a blank behind each, up to the first one that would
/// bring the count to the buffer's size. That one still counts: later appends test the count, and
/// find no room behind an argument text that is not whole.
void TeravolantApp::joinClientArguments(int argc, const char* const* argv) {
    clientArgs = std::make_unique<char[]>(kClientArgsSize);
    clientArgsLength = 0;
    for (int index = 1; index < argc; ++index) {
        const std::string word = std::string(argv[index]) + " ";
        const std::int32_t end = clientArgsLength;
        clientArgsLength += static_cast<std::int32_t>(word.size());
        if (clientArgsLength >= static_cast<std::int32_t>(kClientArgsSize)) {
            return;
        }
        word.copy(clientArgs.get() + end, word.size());
    }
}

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
    if (fits) {
        logCommand();
        platform::runShellCommand(commandBuffer.get());
    }
}

void TeravolantApp::logCommand() const {
    Logger::sharedInstance().logMessage(std::string("Cmd: ") + commandBuffer.get());
}

}  // namespace teravolant
