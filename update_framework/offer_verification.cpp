#include "update_framework/offer_verification.h"

#include <algorithm>

#include "platform/core/text.h"
#include "platform/core/url.h"
#include "platform/crypto/signatures.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

Status refused(std::string reason) {
    return updaterError(SQRLUpdaterErrorRefusedOffer,
                        "The update is refused: " + std::move(reason));
}

}  // namespace

std::string signedText(std::string_view bundleIdentifier, std::string_view version,
                       std::uint64_t size, std::string_view sha256) {
    return std::string("teravolant-update 1\nidentifier=")
        .append(bundleIdentifier)
        .append("\nversion=")
        .append(version)
        .append("\nsize=")
        .append(std::to_string(size))
        .append("\nsha256=")
        .append(lowerCase(sha256))
        .append("\n");
}

Status verifyOffer(const SQRLUpdate& offer, std::string_view feedURL,
                   std::string_view bundleIdentifier, const std::vector<std::string>& publicKeys) {
    const bool isSecure =
        equalIgnoringCase(std::string_view(offer.updateURL).substr(0, 6), "https:");
    if (!isSecure && !isLoopbackURL(feedURL)) {
        return refused("only a feed on this computer may name an archive over plain http.");
    }
    if (publicKeys.empty()) {
        return refused("this bundle has no public key (TVUpdatePublicKeys).");
    }
    if (!offer.size) {
        return refused("the offer has no \"size\".");
    }
    if (!offer.sha256) {
        return refused("the offer has no \"sha256\".");
    }
    if (!offer.signature) {
        return refused("the offer has no \"signature\".");
    }
    if (offer.version.find('\n') != std::string::npos) {
        return refused("its \"version\" contains a line feed.");
    }
    const std::string text =
        signedText(bundleIdentifier, offer.version, *offer.size, *offer.sha256);
    const bool valid = std::any_of(
        publicKeys.begin(), publicKeys.end(),
        [&](const std::string& key) { return isSignatureValid(text, *offer.signature, key); });
    if (!valid) {
        return refused(
            "its \"signature\" was made by none of this bundle's keys over this "
            "identifier, version, size and sha256.");
    }
    return std::nullopt;
}

}  // namespace teravolant::platform
