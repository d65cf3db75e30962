#include <algorithm>
#include <cerrno>
#include <iostream>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/url.h"
#include "platform/crypto/digests.h"
#include "platform/crypto/encodings.h"
#include "platform/files/files.h"
#include "tools/commands.h"
#include "update_framework/module/offer_verification.h"
#include "update_framework/updater_error.h"
#include "updater/feed_response.h"

namespace teravolant::release {
namespace {

namespace fs = std::filesystem;
using platform::Bundle;
using platform::Error;
using platform::Result;
using platform::Status;
using platform::updaterError;

Error refusedBundle(std::string reason) {
    return updaterError(platform::SQRLUpdaterErrorRefusedBundle, std::move(reason));
}

/// The refusal's own reason, with the member that it is about.
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

bool isWithin(const fs::path& path, const fs::path& folder) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first ==
           folder.end();
}

}  // namespace

Result<Bundle> openBundle(const fs::path& path) {
    auto bundle = Bundle::bundleWithPath(path);
    if (!bundle) {
        return refusedBundle("“" + path.string() +
                             "” is not a bundle: its Contents/Info.plist can't be read.");
    }
    return *std::move(bundle);
}

Result<Identity> identityOf(const Bundle& bundle) {
    const auto identifier = bundle.bundleIdentifier();
    const auto version = bundle.shortVersion();
    if (!identifier || !version) {
        return refusedBundle("“" + bundle.bundlePath().string() + "” has no " +
                             (identifier ? "CFBundleShortVersionString" : "CFBundleIdentifier") +
                             " in its Info.plist.");
    }
    Identity identity = {.identifier = *identifier, .version = *version};
    if (auto error = refusalOf(identity)) {
        return error;
    }
    return identity;
}

Status refusalOf(const Identity& identity) {
    if (identity.identifier.empty() || identity.identifier.find('\n') != std::string::npos) {
        return refusedBundle("The identifier is empty or holds a line feed.");
    }
    ClientUpdater::ErrorSlot error;
    const auto offered = ClientUpdater::parseVersion(identity.version, error);
    if (!offered) {
        return refusedBundle("“version”: " + error->localizedDescription);
    }
    // A build reads its own version in the query of its feed's address.
    const auto running = ClientUpdater::parseVersion(
        platform::percentEncodedForQuery("version=" + identity.version), error);
    if (running != offered) {
        return refusedBundle("“version”: the build would take its own version “" +
                             identity.version + "” for another one in its feed's address.");
    }
    return std::nullopt;
}

Result<ArchiveFacts> factsOf(const fs::path& archive, const std::stop_token& stop) {
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
    const auto sha256 = digest.finish();
    if (!sha256) {
        return sha256.error();
    }
    facts.sha256 = platform::hexText(*sha256);
    return facts;
}

Result<platform::SQRLUpdate> acceptedOffer(const std::string& body, const std::string& feedUrl,
                                           const std::string& identifier,
                                           const std::vector<std::string>& publicKeys) {
    auto offer = updateFromFeed(body, platform::URLRequest{platform::URL(feedUrl)});
    auto error =
        offer ? platform::verifyOffer(*offer, identifier, publicKeys) : Status(offer.error());
    if (error) {
        return updaterError(platform::SQRLUpdaterErrorRefusedOffer, reasonOf(*error));
    }
    return offer;
}

std::string unknownFeedUrl(std::string_view version) {
    return std::string(kUnknownFolder) + "feed?" +
           platform::percentEncodedForQuery("version=" + std::string(version));
}

Status refusalOfOutput(const std::string& output, const std::vector<std::string>& inputs) {
    std::error_code unknown;
    const fs::file_status status = fs::status(output, unknown);
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        return platform::errorFromErrno(EEXIST, platform::FileAccess::Write,
                                        "“" + output + "” is no regular file to be replaced");
    }
    const fs::path target = fs::weakly_canonical(output, unknown);
    for (const std::string& input : inputs) {
        if (isWithin(target, fs::weakly_canonical(input, unknown))) {
            const std::string attempt =
                platform::filled("“%@” is not written over or into “%@”", {output, input});
            return platform::errorFromErrno(EEXIST, platform::FileAccess::Write, attempt);
        }
    }
    return std::nullopt;
}

Status print(std::string_view text) {
    errno = 0;
    if (!(std::cout << text << std::flush)) {
        return platform::errorFromErrno(errno, platform::FileAccess::Write,
                                        "Standard output could not be written");
    }
    return std::nullopt;
}

}  // namespace teravolant::release
