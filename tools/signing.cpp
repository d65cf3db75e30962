#include "tools/signing.h"

#include <algorithm>

#include "platform/core/text.h"
#include "platform/crypto/encodings.h"
#include "platform/files/files.h"
#include "tools/output.h"
#include "update_framework/offer_trust.h"

namespace teravolant::release {
namespace {

using platform::quoted;
using platform::Result;
using platform::Status;

constexpr std::size_t kSignatureSize = 64;
constexpr std::size_t kPublicKeySize = 32;

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
    return platform::signersOf({.version = document.offer.version,
                                .offer = document.text,
                                .signatures = document.signatures},
                               publicKeys);
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

Status checkKeepsSigners(const std::optional<FeedDocument>& previous, const FeedDocument& document,
                         const std::vector<std::string>& signers, bool isRotation) {
    if (!previous || isRotation) {
        return std::nullopt;
    }
    const bool areKept = std::ranges::all_of(previous->signatures, [&](const auto& signature) {
        FeedDocument alone{.text = previous->text, .signatures = {signature}};
        return std::ranges::find(document.signatures, signature) != document.signatures.end() ||
               !signersOf(alone, signers).empty();
    });
    return areKept ? Status()
                   : refused(
                         "The document that is replaced was signed with another key or with "
                         "further keys, and installations may know no other. Sign with all of them "
                         "(--also-key), or confirm a change of keys with --rotate.");
}

std::optional<FeedDocument> followed(const std::optional<FeedDocument>& previous,
                                     const std::vector<std::string>& signers, bool isRotation) {
    return isRotation && previous && signersOf(*previous, signers).empty() ? std::nullopt
                                                                           : previous;
}

Result<Signer> signerFrom(const KeyOptions& options, const std::stop_token& stop) {
    std::vector<std::string> sources = options.furtherKeys;
    if (!options.privateKey.empty()) {
        sources.insert(sources.begin(), options.privateKey);
    }
    Signer signer;
    for (const std::string& source : sources) {
        auto key = signingKeyFrom(source, options, stop);
        const auto publicKey = key ? key->publicKey() : key.error();
        if (!publicKey) {
            return publicKey.error();
        }
        signer.publicKeys.push_back(*publicKey);
        signer.keys.push_back(*std::move(key));
    }
    return signer;
}

Status signWith(const Signer& signer, FeedDocument& document) {
    for (const platform::SigningKey& key : signer.keys) {
        const auto signature = key.sign(document.text);
        if (!signature) {
            return signature.error();
        }
        addSignature(document, *signature);
    }
    return std::nullopt;
}

}  // namespace teravolant::release
