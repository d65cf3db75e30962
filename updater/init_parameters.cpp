#include <string_view>

#include "launcher/teravolant_app.h"
#include "platform/core/text.h"
#include "platform/system/bundle.h"
#include "platform/system/preferences.h"
#include "support/logger.h"
#include "updater/teravolant_app_delegate.h"

namespace teravolant {
namespace {

using platform::UserDefaults;

constexpr std::string_view kInstalledExecutable =
    "/Applications/Teravolant.app/Contents/MacOS/Teravolant";
constexpr std::string_view kVersionKey = "initparamsversion";

}  // namespace

bool TeravolantAppDelegate::checkInitParameters(const Version& bundleVersion) {
    const std::string executable = platform::Bundle::mainBundle().executablePath();
    if (!platform::equalIgnoringCase(executable, kInstalledExecutable)) {
        Logger::sharedInstance().logMessage(
            "TeravolantAppDelegate::checkInitParameters: not installed app: " + executable);
        return true;
    }
    const auto stored = UserDefaults::standardUserDefaults().objectForKey(kVersionKey);
    return stored && stored->text() != nullptr && *stored->text() == bundleVersion;
}

void TeravolantAppDelegate::updateInitParameters(const Version& bundleVersion) {
    Logger::sharedInstance().logMessage("TeravolantAppDelegate::updateInitParameters " +
                                        bundleVersion.value_or(platform::kMissingValueMark));
    if (!bundleVersion) {
        return;
    }
    (void)UserDefaults::standardUserDefaults().setObject(*bundleVersion, kVersionKey);
    if (TeravolantApp* const app = clientApp()) {
        app->setInitParamsUpdated(true);
    }
}

}  // namespace teravolant
