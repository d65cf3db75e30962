#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "update_framework/mtl_json_adapter.h"

namespace teravolant::platform {

/// The update that a feed offers. Every member is well-formed; none is trusted before
/// `verifyOffer`.
struct SQRLUpdate {
    std::string updateURL;  ///< `url`: satisfies `isSecureOrLoopbackURL`.
    std::string version;
    std::optional<std::string> name;
    std::optional<std::uint64_t> size;     ///< Of the archive, in bytes; at least 1.
    std::optional<std::string> sha256;     ///< Of the archive: 64 hexadecimal digits.
    std::optional<std::string> signature;  ///< Base64 (RFC 4648) with padding.
};

/// Requires `url` and `version`.
template <>
Result<SQRLUpdate> MTLJSONAdapter::modelOfClass<SQRLUpdate>(const Value::Dictionary& dictionary);

class Bundle;

/// Returns the public keys that the bundle trusts: the strings of its "TVUpdatePublicKeys".
[[nodiscard]] std::vector<std::string> updatePublicKeys(const Bundle& bundle);

}  // namespace teravolant::platform
