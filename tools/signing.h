#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/core/result.h"
#include "tools/document.h"

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

/// Fails unless one of the signers also signed the document that is replaced: installations may not
/// know another key. `isRotation` accepts that.
[[nodiscard]] platform::Status checkSameSigner(const std::optional<FeedDocument>& previous,
                                               const std::vector<std::string>& signers,
                                               bool isRotation);

}  // namespace teravolant::release
