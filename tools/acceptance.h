#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"
#include "update_framework/installation.h"
#include "update_framework/offer_trust.h"

// What an installed bundle takes, decided by the launcher's own functions.
namespace teravolant::release {

/// An offer that an installation takes.
struct AcceptedOffer {
    platform::Offer offer;
    std::string archiveUrl;
};

/// Returns the offer in the feed document `body` if an installation takes it as the response to its
/// request for `feedUrl`, whose query contains the running version. Does not apply the roll-out and
/// the order of documents, which depend on the computer. The error states the reason.
platform::Result<AcceptedOffer> acceptedOffer(const std::string& body, const std::string& feedUrl,
                                              const platform::Installation& installation,
                                              std::chrono::sys_seconds now);

/// The same for an offer that is only authentic and newer: it may be expired or withdrawn.
platform::Result<AcceptedOffer> authenticOffer(const std::string& body, const std::string& feedUrl,
                                               const platform::Installation& installation);

/// The parent of a feed whose URL is unknown.
inline constexpr std::string_view kUnknownFolder = "https://feed.invalid/";

/// Returns the URL of a feed in `kUnknownFolder` as a build of `version` requests it.
[[nodiscard]] std::string unknownFeedUrl(std::string_view version);

/// Returns an installation of the oldest version of the channel of `version`.
[[nodiscard]] platform::Installation oldestInstallation(const platform::Offer& offer,
                                                        std::vector<std::string> publicKeys);

}  // namespace teravolant::release
