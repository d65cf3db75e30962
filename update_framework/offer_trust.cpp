#include "update_framework/offer_trust.h"

#include <algorithm>
#include <charconv>

#include "platform/core/text.h"
#include "platform/core/url.h"
#include "platform/core/utc_time.h"
#include "platform/core/version.h"
#include "platform/crypto/digests.h"
#include "platform/crypto/signatures.h"
#include "platform/values/json.h"

namespace teravolant::platform {
namespace {

const std::string* textOf(const Value& document, std::string_view member) {
    const Value* const value = document.find(member);
    return value == nullptr ? nullptr : value->text();
}

Result<std::vector<std::string>> signaturesIn(const Value& document) {
    const Value* const value = document.find("signatures");
    const Value::Array* const array = value == nullptr ? nullptr : value->array();
    if (array == nullptr || array->empty() || array->size() > kMostSignatures) {
        return refusedOffer("the document has no “signatures”, or more than " +
                            std::to_string(kMostSignatures) + " of them.");
    }
    std::vector<std::string> signatures;
    for (const Value& signature : *array) {
        if (signature.text() == nullptr) {
            return refusedOffer("its “signatures” are not strings.");
        }
        signatures.push_back(*signature.text());
    }
    return signatures;
}

std::string channelOf(std::string_view version) {
    return isPreRelease(version) ? "a pre-release version" : "a release version";
}

}  // namespace

Result<SignedDocument> signedDocumentIn(std::string_view body) {
    const auto document = parseJson(body);
    if (!document) {
        return document.error();
    }
    const std::string* const version = textOf(*document, "version");
    const std::string* const offer = textOf(*document, "offer");
    if (version == nullptr || offer == nullptr) {
        return refusedOffer(version == nullptr ? "the document has no “version”."
                                               : "the document has no “offer”.");
    }
    auto signatures = signaturesIn(*document);
    if (!signatures) {
        return signatures.error();
    }
    return SignedDocument{
        .version = *version, .offer = *offer, .signatures = *std::move(signatures)};
}

std::vector<std::string> signersOf(const SignedDocument& document,
                                   const std::vector<std::string>& publicKeys) {
    std::vector<std::string> signers;
    std::ranges::copy_if(publicKeys, std::back_inserter(signers), [&](const std::string& key) {
        return std::ranges::any_of(document.signatures, [&](const std::string& signature) {
            return isSignatureValid(document.offer, signature, key);
        });
    });
    return signers;
}

Result<AuthenticOffer> authenticOfferIn(const SignedDocument& document,
                                        const Installation& installation) {
    if (installation.publicKeys.empty()) {
        return refusedOffer("this bundle has no public key (TVUpdatePublicKeys).");
    }
    AuthenticOffer authentic{.offer = {}, .signers = signersOf(document, installation.publicKeys)};
    if (authentic.signers.empty()) {
        return refusedOffer("none of its “signatures” was made by a key of this bundle.");
    }
    auto offer = parseOffer(document.offer);
    if (!offer) {
        return offer.error();
    }
    if (offer->identifier != installation.bundleIdentifier) {
        return refusedOffer("its “identifier” is " + escaped(offer->identifier) + ", not " +
                            installation.bundleIdentifier + ".");
    }
    if (offer->version != document.version) {
        return refusedOffer("its signed “version” is " + escaped(offer->version) +
                            ", the document's is " + escaped(document.version) + ".");
    }
    if (!installation.acceptsBothChannels &&
        isPreRelease(offer->version) != isPreRelease(installation.bundleVersion)) {
        return refusedOffer("it offers " + channelOf(offer->version) + " to " +
                            channelOf(installation.bundleVersion) + ".");
    }
    authentic.offer = *std::move(offer);
    return authentic;
}

Status checkNotExpired(const Offer& offer, const Installation& installation,
                       std::chrono::sys_seconds clock) {
    if (!offer.expires || std::max(clock, installation.buildTime) < *offer.expires) {
        return std::nullopt;
    }
    return refusedOffer("it expired at " + utcTimeText(*offer.expires) +
                        ". Its publisher has not renewed it, or the server hides a newer one.");
}

Status checkUsable(const Offer& offer, const std::string& url, const std::string& feedURL,
                   const Installation& installation, std::chrono::sys_seconds clock) {
    if (auto error = checkNotExpired(offer, installation, clock)) {
        return error;
    }
    if (withdraws(offer, offer.version)) {
        return refusedOffer("it is withdrawn.");
    }
    const bool isSecure = equalIgnoringCase(std::string_view(url).substr(0, 6), "https:");
    return isSecure || isLoopbackURL(feedURL)
               ? Status()
               : refusedOffer("only a feed on this computer may name an archive over plain http.");
}

bool withdraws(const Offer& offer, std::string_view version) {
    return std::ranges::any_of(offer.withdrawn, [version](const std::string& withdrawn) {
        return isSameVersion(withdrawn, version);
    });
}

bool overridesRollout(const Offer& offer, std::string_view version) {
    return (offer.floor && isHigherVersion(*offer.floor, version)) || withdraws(offer, version);
}

bool isInRollout(const Offer& offer, std::string_view localId) {
    constexpr std::uint64_t kPlaces = std::uint64_t{1} << 32U;
    constexpr std::uint64_t kWhole = 100;
    Digest digest;
    digest.update(localId);
    digest.update(offer.version);
    const std::string digits = digest.finish().substr(0, 8);
    std::uint64_t place = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), place, 16);
    return place * kWhole < offer.rollout.value_or(kWhole) * kPlaces;
}

}  // namespace teravolant::platform
