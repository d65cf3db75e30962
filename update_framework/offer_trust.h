#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"
#include "update_framework/installation.h"
#include "update_framework/offer.h"

// The rules that decide whether an installation trusts an offer. Pure functions: they change and
// remember nothing. Each refusal is an error with `SQRLUpdaterErrorRefusedOffer`.
namespace teravolant::platform {

/// The signed part of a feed document, before anything is verified.
struct SignedDocument {
    std::string version;  ///< The member "version".
    std::string offer;
    std::vector<std::string> signatures;  ///< Base64 of Ed25519 signatures over `offer`.
};

/// Reads the members `version`, `offer` and `signatures` of a feed document. Fails for a document
/// without them or with more than `kMostSignatures` signatures.
Result<SignedDocument> signedDocumentIn(std::string_view body);

/// A limit on the work that an unsigned document can cause.
inline constexpr std::size_t kMostSignatures = 16;

/// Returns those of the keys that signed the document.
[[nodiscard]] std::vector<std::string> signersOf(const SignedDocument& document,
                                                 const std::vector<std::string>& publicKeys);

/// An offer whose signature, identifier, version and channel are those of the installation.
struct AuthenticOffer {
    Offer offer;
    std::vector<std::string> signers;  ///< The installation's keys that signed it, at least one.
};

/// Verifies the signatures, then reads the offer. Fails unless one of the installation's keys
/// signed the offer, and the offer is for the installation's identifier and channel and for the
/// version of the document.
Result<AuthenticOffer> authenticOfferIn(const SignedDocument& document,
                                        const Installation& installation);

/// Fails if the offer has expired. The present is the later of the computer's clock and the time at
/// which the bundle was built.
[[nodiscard]] Status checkNotExpired(const Offer& offer, const Installation& installation,
                                     std::chrono::sys_seconds clock);

/// Fails if nothing is taken from the offer at this time by any installation: it has expired, it
/// withdraws its own version, or `url`, the archive's address, is plain http although the feed is
/// not on this computer.
[[nodiscard]] Status checkUsable(const Offer& offer, const std::string& url,
                                 const std::string& feedURL, const Installation& installation,
                                 std::chrono::sys_seconds clock);

/// Whether the offer withdraws the version.
[[nodiscard]] bool withdraws(const Offer& offer, std::string_view version);

/// Whether an installation of `version` takes the offer regardless of the roll-out: it is older
/// than the floor, or withdrawn.
[[nodiscard]] bool overridesRollout(const Offer& offer, std::string_view version);

/// Whether the installation with this local id, 16 random bytes, is in the share of installations
/// that take the offer now.
///
/// Each version gives an installation another place: the first 32 bits (big-endian) of the
/// BLAKE2b-256 digest of the id followed by the text of the version. The lowest places come first,
/// so that a raised share keeps the earlier installations.
[[nodiscard]] bool isInRollout(const Offer& offer, std::string_view localId);

}  // namespace teravolant::platform
