#include <exception>
#include <memory>

#include "platform/core/text.h"
#include "platform/core/url.h"
#include "platform/core/version.h"
#include "platform/system/preferences.h"
#include "platform/values/printed_form.h"
#include "support/logger.h"
#include "updater/client_updater.h"
#include "updater/teravolant_app_delegate.h"

namespace teravolant {
namespace {

using platform::kMissingValueMark;
using platform::URLRequest;
using platform::Value;
using Location = Value::Dictionary;

void log(const std::string& text) {
    Logger::sharedInstance().logMessage("[TeravolantAppDelegate::updateToLatestVersion] " + text);
}

std::optional<Location> locationOverride() {
    const auto value = platform::UserDefaults::standardUserDefaults().objectForKey("updateserver");
    if (!value || value->dictionary() == nullptr) {
        return std::nullopt;
    }
    return *value->dictionary();
}

Location builtInLocation(const TeravolantAppDelegate::Version& bundleVersion) {
    if (bundleVersion && platform::isPreRelease(*bundleVersion)) {
        return {{"scheme", "https"},
                {"host", TERAVOLANT_ALPHA_UPDATE_HOST},
                {"path", "/teravolant/alpha/release.mac"}};
    }
    return {{"scheme", "https"},
            {"host", TERAVOLANT_RELEASE_UPDATE_HOST},
            {"path", "/teravolant/release/release.mac"}};
}

std::optional<std::string> textIn(const Location& location, std::string_view key) {
    const auto entry = location.find(key);
    if (entry == location.end() || entry->second.text() == nullptr) {
        return std::nullopt;
    }
    return *entry->second.text();
}

URLRequest feedRequest(const Location& location,
                       const TeravolantAppDelegate::Version& bundleVersion) {
    const platform::URLComponents components = {
        .scheme = textIn(location, "scheme"),
        .host = textIn(location, "host"),
        .path = textIn(location, "path"),
        .percentEncodedQuery = platform::percentEncodedForQuery(
            "version=" + bundleVersion.value_or(kMissingValueMark))};
    return URLRequest{components.url()};
}

std::string addressOf(const URLRequest& request) {
    return request.url ? request.url->absoluteString() : "";
}

}  // namespace

void TeravolantAppDelegate::updateToLatestVersion(const Version& bundleVersion) {
    log("bundleVersion=" + bundleVersion.value_or(kMissingValueMark));
    auto infoUpdateServer = locationOverride();
    log("infoUpdateServer = " +
        (infoUpdateServer ? printedForm(*infoUpdateServer) : kMissingValueMark));
    if (!infoUpdateServer) {
        infoUpdateServer = builtInLocation(bundleVersion);
        log("infoUpdateServer = " + printedForm(*infoUpdateServer));
    }
    const URLRequest request = feedRequest(*infoUpdateServer, bundleVersion);
    log("NSURLRequest=" + printedForm(request));
    try {
        setUpdater(std::make_shared<ClientUpdater>(request));
        const URLRequest builtIn = feedRequest(builtInLocation(bundleVersion), bundleVersion);
        if (addressOf(request) != addressOf(builtIn)) {
            updater()->acceptBothChannels();
        }
        (void)updater()->startChecksImmediately();
    } catch (const std::exception& exception) {
        log(std::string("e=") + exception.what());
        platform::Application::sharedApplication().terminate();
    }
}

}  // namespace teravolant
