#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

/// A patch from one version to the offered one.
struct OfferedPatch {
    std::string fromVersion;
    std::uint64_t size = 0;  ///< Bytes.
    std::string digest;      ///< 64 lower-case hexadecimal digits.
    std::string name;        ///< Of the file in the feed's folder. No slash.

    friend bool operator==(const OfferedPatch&, const OfferedPatch&) = default;
};

/// What a publisher states, and signs, about one build. Digests are BLAKE2b-256 (RFC 7693) as 64
/// lower-case hexadecimal digits.
struct Offer {
    std::string identifier;  ///< Of the bundle.
    std::string version;     ///< Satisfies `versionIn`.
    /// When it was signed. Orders the documents of a publisher; may be in the future.
    std::chrono::sys_seconds issued;
    /// From this time on, nothing new is taken from the offer.
    std::optional<std::chrono::sys_seconds> expires = {};
    /// Older bundles take the offer regardless of the roll-out.
    std::optional<std::string> floor = {};
    /// Versions that must not run.
    std::vector<std::string> withdrawn = {};
    /// The percentage of installations that take the offer now, 0 to 100; nothing means all.
    std::optional<unsigned> rollout = {};
    std::uint64_t size = 0;          ///< Of the archive in bytes, at least 1.
    std::string digest;              ///< Of the archive.
    std::uint64_t unpackedSize = 0;  ///< Of all files of the bundle in bytes, at least 1.
    std::string tree;                ///< `digestOfTree` of the bundle.
    std::vector<OfferedPatch> patches = {};

    friend bool operator==(const Offer&, const Offer&) = default;
};

inline constexpr std::string_view kOfferFirstLine = "teravolant-offer 1";

/// Whether `parseOffer` reads the lines with this key.
[[nodiscard]] bool isKnownOfferKey(std::string_view key);

/// Reads the text of an offer: UTF-8, one `KEY=VALUE` per line, each line terminated by one line
/// feed; the first line is `kOfferFirstLine`, the others are in any order.
///
/// Ignores unknown keys. Fails with `SQRLUpdaterErrorRefusedOffer`, and the reason, for a duplicate
/// key (except `patch`), a missing required key, a malformed value of a known key, an empty line, a
/// carriage return, and a missing last line feed.
Result<Offer> parseOffer(std::string_view text);

/// Returns an error with `SQRLUpdaterErrorRefusedOffer`: "The update is refused: " and the reason.
[[nodiscard]] Status refusedOffer(std::string_view reason);

}  // namespace teravolant::platform
