#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"
#include "update_framework/sqrl_update.h"

namespace teravolant::platform {

/// What a publisher signs: the bundle identifier, the version, and the archive's size and SHA-256,
/// so that an old archive can't be offered as a new one, nor one product's as another's.
///
/// UTF-8, each line ended by a line feed: "teravolant-update 1", then "identifier=", "version=",
/// "size=" (decimal bytes) and "sha256=" (64 lower-case hexadecimal digits) with the values behind
/// them. No value may hold a line feed.
[[nodiscard]] std::string signedText(std::string_view bundleIdentifier, std::string_view version,
                                     std::uint64_t size, std::string_view sha256);

/// Nothing when the offer is whole and one of the public keys made its signature over `signedText`;
/// else the reason to refuse it.
[[nodiscard]] Status verifyOffer(const SQRLUpdate& offer, std::string_view bundleIdentifier,
                                 const std::vector<std::string>& publicKeys);

}  // namespace teravolant::platform
