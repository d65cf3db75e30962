#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "update_framework/mtl_json_adapter.h"

namespace teravolant::platform {

/// What a feed offers, each member well-formed; whether it is to be trusted is not decided here.
struct SQRLUpdate {
    std::string updateURL;  ///< `url`: `isSecureOrLoopbackURL` holds for it.
    std::string version;
    std::optional<std::string> name;
    std::optional<std::uint64_t> size;  ///< Of the archive, in bytes, at least 1.
    std::optional<std::string> sha256;  ///< Of the archive, 64 hexadecimal digits in either case.
    std::optional<std::string> signature;  ///< Base64 (RFC 4648) with its padding.
};

/// `url` and `version` must be there.
template <>
Result<SQRLUpdate> MTLJSONAdapter::modelOfClass<SQRLUpdate>(const Value::Dictionary& dictionary);

class Bundle;

/// The public keys that a bundle accepts offers from, its "TVUpdatePublicKeys".
[[nodiscard]] std::vector<std::string> updatePublicKeys(const Bundle& bundle);

}  // namespace teravolant::platform
