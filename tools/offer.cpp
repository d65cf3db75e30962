#include "tools/offer.h"

#include "platform/core/error.h"
#include "platform/core/url.h"
#include "platform/crypto/digests.h"
#include "platform/files/files.h"
#include "update_framework/offer_verification.h"
#include "update_framework/updater_error.h"
#include "updater/feed_response.h"

namespace teravolant::release {
namespace {

using platform::Error;
using platform::Result;
using platform::Status;
using platform::updaterError;

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

Result<ArchiveFacts> factsOf(const std::filesystem::path& archive, const std::stop_token& stop) {
    constexpr std::size_t kPieceSize = std::size_t{1} << 18U;
    platform::Digest digest(platform::DigestAlgorithm::Sha256);
    ArchiveFacts facts;
    const auto add = [&](std::string_view piece) -> Status {
        if (stop.stop_requested()) {
            return updaterError(platform::SQRLUpdaterErrorCheckNotPossible,
                                "Reading the archive was cancelled.");
        }
        digest.update(piece);
        facts.size += piece.size();
        return std::nullopt;
    };
    if (auto error = platform::readInPieces(archive, kPieceSize, add)) {
        return error;
    }
    facts.sha256 = digest.finish();
    return facts;
}

Result<platform::SQRLUpdate> acceptedOffer(const std::string& body, const std::string& feedUrl,
                                           const std::string& identifier,
                                           const std::vector<std::string>& publicKeys) {
    auto offer = updateFromFeed(body, platform::URLRequest{platform::URL(feedUrl)});
    auto error = offer ? platform::verifyOffer(*offer, feedUrl, identifier, publicKeys)
                       : Status(offer.error());
    if (error) {
        return updaterError(platform::SQRLUpdaterErrorRefusedOffer, reasonOf(*error));
    }
    return offer;
}

std::string unknownFeedUrl(std::string_view version) {
    return std::string(kUnknownFolder) + "feed?" +
           platform::percentEncodedForQuery("version=" + std::string(version));
}

}  // namespace teravolant::release
