#include "updater/teravolant_app_delegate.h"

#include <unistd.h>

#include "launcher/teravolant_app.h"
#include "platform/system/bundle.h"
#include "support/logger.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using platform::Application;

TeravolantApp* theClientApp = nullptr;

bool opensAsLoginItem(const platform::AppleEvent& event) {
    if (event.eventID != platform::kOpenApplicationEvent) {
        return false;
    }
    const auto data = event.parameters.find(platform::kPropertyData);
    return data != event.parameters.end() &&
           data->second.descriptorType == platform::kTypeDescriptor &&
           data->second.typeCodeValue == platform::kLoginItem;
}

}  // namespace

std::unique_ptr<TeravolantAppDelegate> TeravolantAppDelegate::initWith(TeravolantApp* app) {
    setClientApp(app);
    return std::make_unique<TeravolantAppDelegate>();
}

TeravolantApp* TeravolantAppDelegate::clientApp() { return theClientApp; }

void TeravolantAppDelegate::setClientApp(TeravolantApp* app) { theClientApp = app; }

void TeravolantAppDelegate::applicationDidFinishLaunching(
    const platform::LaunchNotification& notification) {
    Application& application = Application::sharedApplication();
    TeravolantApp* const app = clientApp();

    // Set the flags first: the client launch below reads them.
    const bool defaultLaunch = notification.isDefaultLaunch.value_or(false);
    if (app != nullptr && (!defaultLaunch || opensAsLoginItem(application.currentAppleEvent()))) {
        app->setLaunchedAtLogin(true);
    }
    const Version bundleVersion = platform::Bundle::mainBundle().shortVersion();
    if (!checkInitParameters(bundleVersion)) {
        updateInitParameters(bundleVersion);
    }

    Logger& logger = Logger::sharedInstance();
    if (app != nullptr) {
        app->launchTeravolant();
        if (app->getNoUpdate()) {
            logger.logMessage("Update is off, closing the app.");
            application.terminate();
        }
    }
    if (geteuid() == 0) {
        logger.logMessage("INFO: root user is not allowed to update the app, closing the app.");
        application.terminate();
    }
    updateToLatestVersion(bundleVersion);
}

void TeravolantAppDelegate::applicationWillTerminate() {
    Logger::sharedInstance().logMessage("[TeravolantAppDelegate::applicationWillTerminate]");
    TeravolantApp* const app = clientApp();
    if (app == nullptr) {
        return;
    }
    const auto checker = updater();
    if (checker && checker->state() == platform::UpdaterState::awaitingRelaunch) {
        app->sendTeravolantCommand("--needrestart \"ApplyReleasesWaiting\" --minimized");
    }
    TeravolantApp::storeLaunchAgent(LaunchAgentKind::autorun, false);
}

}  // namespace teravolant
