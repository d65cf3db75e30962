#include "tools/signing.h"

#include <algorithm>

#include "platform/core/text.h"
#include "platform/crypto/encodings.h"
#include "platform/crypto/signatures.h"
#include "platform/files/files.h"
#include "update_framework/updater_error.h"

namespace teravolant::release {
namespace {

using platform::quoted;
using platform::Result;
using platform::Status;

constexpr std::size_t kSignatureSize = 64;
constexpr std::size_t kPublicKeySize = 32;

Status refused(std::string reason) {
    return platform::updaterError(platform::SQRLUpdaterErrorRefusedOffer, std::move(reason));
}

bool hasAny(const std::vector<std::string>& keys, const std::vector<std::string>& others) {
    return std::ranges::any_of(keys, [&](const std::string& key) {
        return std::ranges::find(others, key) != others.end();
    });
}

}  // namespace

Result<std::string> detachedSignatureIn(const std::string& file) {
    auto bytes = platform::contentsOfFile(file);
    if (!bytes || bytes->size() == kSignatureSize) {
        return bytes ? Result<std::string>(platform::base64Encoded(*bytes)) : bytes.error();
    }
    std::erase_if(*bytes, [](char character) { return character == '\n' || character == '\r'; });
    const auto decoded = platform::base64Decoded(*bytes);
    return decoded && decoded->size() == kSignatureSize
               ? Result<std::string>(*std::move(bytes))
               : refused(quoted(file) +
                         " is not an Ed25519 signature: 64 bytes, or their Base64 form.");
}

std::vector<std::string> signersOf(const FeedDocument& document,
                                   const std::vector<std::string>& publicKeys) {
    std::vector<std::string> signers;
    std::ranges::copy_if(publicKeys, std::back_inserter(signers), [&](const std::string& key) {
        return std::ranges::any_of(document.signatures, [&](const std::string& signature) {
            return platform::isSignatureValid(document.text, signature, key);
        });
    });
    return signers;
}

Status checkKeysOf(const std::vector<std::string>& bundleKeys,
                   const std::vector<std::string>& signers, bool isRotation) {
    if (bundleKeys.empty()) {
        return refused(
            "The bundle has no public key (TVUpdatePublicKeys), so it would never take an update. "
            "Build it with TERAVOLANT_UPDATE_PUBLIC_KEYS.");
    }
    for (const std::string& key : bundleKeys) {
        if (platform::base64Decoded(key).value_or("").size() != kPublicKeySize) {
            return refused("TVUpdatePublicKeys of the bundle contains " +
                           quoted(platform::escaped(key)) + ", which is not a public key.");
        }
    }
    return isRotation || hasAny(bundleKeys, signers)
               ? Status()
               : refused(
                     "The bundle does not contain the public key of the private key, so it would "
                     "refuse the next document that this key signs. Confirm a change of keys with "
                     "--rotate.");
}

Status checkSameSigner(const std::optional<FeedDocument>& previous,
                       const std::vector<std::string>& signers, bool isRotation) {
    return !previous || isRotation || !signersOf(*previous, signers).empty()
               ? Status()
               : refused(
                     "The document that is replaced was signed with another key, so installations "
                     "may not know this one. Confirm a change of keys with --rotate.");
}

}  // namespace teravolant::release
