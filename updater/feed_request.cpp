#include <exception>
#include <memory>

#include "platform/core/text.h"
#include "platform/values/printed_form.h"
#include "support/logger.h"
#include "updater/client_updater.h"
#include "updater/feed_location.h"
#include "updater/teravolant_app_delegate.h"

namespace teravolant {
namespace {

using platform::kMissingValueMark;

void log(const std::string& text) {
    Logger::sharedInstance().logMessage("[TeravolantAppDelegate::updateToLatestVersion] " + text);
}

}  // namespace

void TeravolantAppDelegate::updateToLatestVersion(const Version& bundleVersion) {
    log("bundleVersion=" + bundleVersion.value_or(kMissingValueMark));
    const FeedLocation feed = feedLocationFor(bundleVersion);
    log("infoUpdateServer = " +
        (feed.setByUser ? printedForm(*feed.setByUser) : kMissingValueMark));
    if (!feed.setByUser) {
        log("infoUpdateServer = " + printedForm(feed.builtIn));
    }
    log("NSURLRequest=" + printedForm(feed.request));
    try {
        setUpdater(std::make_shared<ClientUpdater>(feed.request));
        if (!feed.isBuiltIn) {
            updater()->acceptBothChannels();
        }
        (void)updater()->startChecksImmediately();
    } catch (const std::exception& exception) {
        log(std::string("e=") + exception.what());
        platform::Application::sharedApplication().terminate();
    }
}

}  // namespace teravolant
