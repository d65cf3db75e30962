#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"
#include "update_framework/sqrl_update.h"

namespace teravolant::platform {

/// Returns the text that a publisher signs: the bundle identifier, the version, and the archive's
/// size and SHA-256, so that no archive can be offered as another version or another product.
///
/// UTF-8, each line terminated by a line feed: "teravolant-update 1", then "identifier=",
/// "version=", "size=" (decimal bytes) and "sha256=" (64 lower-case hexadecimal digits), each
/// followed by its value. No value may contain a line feed.
[[nodiscard]] std::string signedText(std::string_view bundleIdentifier, std::string_view version,
                                     std::uint64_t size, std::string_view sha256);

/// Returns the reason to refuse the offer of the feed at `feedURL`, or nothing if it is complete
/// and its signature over `signedText` is valid for one of the public keys. Only a feed on a
/// loopback host may name an archive over plain http.
[[nodiscard]] Status verifyOffer(const SQRLUpdate& offer, std::string_view feedURL,
                                 std::string_view bundleIdentifier,
                                 const std::vector<std::string>& publicKeys);

}  // namespace teravolant::platform
