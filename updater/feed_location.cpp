#include "updater/feed_location.h"

#include "platform/core/text.h"
#include "platform/core/version.h"
#include "platform/system/preferences.h"

namespace teravolant {
namespace {

using platform::kMissingValueMark;
using platform::URLRequest;
using platform::Value;
using Location = Value::Dictionary;

std::optional<Location> locationSetByUser() {
    const auto value = platform::UserDefaults::standardUserDefaults().objectForKey("updateserver");
    if (!value || value->dictionary() == nullptr) {
        return std::nullopt;
    }
    return *value->dictionary();
}

Location builtInLocation(const std::optional<std::string>& bundleVersion) {
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

URLRequest feedRequest(const Location& location, const std::optional<std::string>& bundleVersion) {
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

FeedLocation feedLocationFor(const std::optional<std::string>& bundleVersion) {
    FeedLocation feed{.setByUser = locationSetByUser(),
                      .builtIn = builtInLocation(bundleVersion),
                      .request = {},
                      .isBuiltIn = true};
    const URLRequest builtIn = feedRequest(feed.builtIn, bundleVersion);
    feed.request = feed.setByUser ? feedRequest(*feed.setByUser, bundleVersion) : builtIn;
    feed.isBuiltIn = addressOf(feed.request) == addressOf(builtIn);
    return feed;
}

}  // namespace teravolant
