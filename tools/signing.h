#pragma once

#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "platform/core/result.h"
#include "platform/crypto/signing_key.h"
#include "tools/document.h"
#include "tools/key_source.h"

// Who signed a document, and whether installations can follow a change of keys.
namespace teravolant::release {

/// Returns the Base64 form of a detached signature: 64 raw bytes, or their Base64, in a file.
platform::Result<std::string> detachedSignatureIn(const std::string& file);

/// Returns those of the public keys that signed the document.
[[nodiscard]] std::vector<std::string> signersOf(const FeedDocument& document,
                                                 const std::vector<std::string>& publicKeys);

/// Fails unless the bundle to be published has public keys, all of them well-formed, and one of
/// them is among the signers: builds that install it would otherwise refuse the next document.
/// `isRotation` accepts a bundle with other keys than the signers.
[[nodiscard]] platform::Status checkKeysOf(const std::vector<std::string>& bundleKeys,
                                           const std::vector<std::string>& signers,
                                           bool isRotation);

/// Fails unless every key that signed the document that is replaced signed the new one as well:
/// installations may know no other key. `isRotation` accepts that.
[[nodiscard]] platform::Status checkKeepsSigners(const std::optional<FeedDocument>& previous,
                                                 const FeedDocument& document,
                                                 const std::vector<std::string>& signers,
                                                 bool isRotation);

/// Returns the document whose time of signing the next one must follow: `previous`, unless a
/// rotation leaves none of its keys, since each key has an order of its own.
[[nodiscard]] std::optional<FeedDocument> followed(const std::optional<FeedDocument>& previous,
                                                   const std::vector<std::string>& signers,
                                                   bool isRotation);

/// The private keys of a command and their public keys, in the same order.
struct Signer {
    std::vector<platform::SigningKey> keys = {};
    std::vector<std::string> publicKeys = {};
};

/// Reads the keys of the options. Returns none if the options name none.
platform::Result<Signer> signerFrom(const KeyOptions& options, const std::stop_token& stop);

/// Adds a signature by each key.
[[nodiscard]] platform::Status signWith(const Signer& signer, FeedDocument& document);

}  // namespace teravolant::release
