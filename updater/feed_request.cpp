#include "platform/text.h"
#include "support/logger.h"
#include "updater/client_updater.h"
#include "updater/teravolant_app_delegate.h"

namespace teravolant {

void TeravolantAppDelegate::updateToLatestVersion(const Version& bundleVersion) {
    Logger::sharedInstance().logMessage(
        "[TeravolantAppDelegate::updateToLatestVersion] bundleVersion=" +
        bundleVersion.value_or(std::string(platform::kMissingValueMark)));
    platform::Application::sharedApplication().terminate();
}

}  // namespace teravolant
