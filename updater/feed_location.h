#pragma once

#include <optional>
#include <string>

#include "platform/core/url.h"
#include "platform/values/value.h"

namespace teravolant {

/// Where a bundle gets its feed.
struct FeedLocation {
    /// The preference "updateserver", if it is a dictionary: "scheme", "host" and "path".
    std::optional<platform::Value::Dictionary> setByUser;
    platform::Value::Dictionary builtIn;  ///< That of the bundle's channel, in the same form.
    platform::URLRequest request;         ///< Without an address if `setByUser` gives none.
    bool isBuiltIn;  ///< Whether the address of the request is the built-in one.
};

/// Returns the feed for a bundle of this version: the user's setting, else the built-in feed. Reads
/// the user's preferences.
[[nodiscard]] FeedLocation feedLocationFor(const std::optional<std::string>& bundleVersion);

}  // namespace teravolant
