#include "tools/acceptance.h"

#include "platform/core/error.h"
#include "platform/core/url.h"
#include "platform/core/version.h"
#include "update_framework/updater_error.h"
#include "updater/feed_response.h"

namespace teravolant::release {
namespace {

using platform::Error;
using platform::Installation;
using platform::Result;
using platform::Status;

/// Returns the reason of the refusal and the member that it is about.
std::string reasonOf(const Error& error) {
    if (const Error* underlying = error.underlyingError()) {
        return underlying->localizedDescription;
    }
    if (error.code == platform::SQRLUpdaterErrorMissingUpdateBundle) {
        return "“version”: " + error.localizedDescription;
    }
    if (error.code == platform::SQRLUpdaterErrorInvalidJSON) {
        return "The feed is not one JSON object.";
    }
    return error.localizedDescription;
}

}  // namespace

Result<AcceptedOffer> authenticOffer(const std::string& body, const std::string& feedUrl,
                                     const Installation& installation) {
    const auto update = updateFromFeed(body, platform::URLRequest{platform::URL(feedUrl)});
    if (!update) {
        return platform::updaterError(platform::SQRLUpdaterErrorRefusedOffer,
                                      reasonOf(update.error()));
    }
    const auto document = platform::signedDocumentIn(body);
    if (!document) {
        return document.error();
    }
    auto authentic = platform::authenticOfferIn(*document, installation);
    if (!authentic) {
        return authentic.error();
    }
    return AcceptedOffer{.offer = std::move(authentic->offer), .archiveUrl = update->updateURL};
}

Result<AcceptedOffer> acceptedOffer(const std::string& body, const std::string& feedUrl,
                                    const Installation& installation,
                                    std::chrono::sys_seconds now) {
    auto accepted = authenticOffer(body, feedUrl, installation);
    if (accepted) {
        if (auto error = platform::checkUsable(accepted->offer, accepted->archiveUrl, feedUrl,
                                               installation, now)) {
            return error;
        }
    }
    return accepted;
}

std::string unknownFeedUrl(std::string_view version) {
    return std::string(kUnknownFolder) + "feed?" +
           platform::percentEncodedForQuery("version=" + std::string(version));
}

Installation oldestInstallation(const platform::Offer& offer, std::vector<std::string> publicKeys) {
    return {.bundleIdentifier = offer.identifier,
            .bundleVersion = platform::isPreRelease(offer.version) ? "99.99.99.0" : "0.0.0.0",
            .publicKeys = std::move(publicKeys)};
}

}  // namespace teravolant::release
