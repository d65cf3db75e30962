#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace teravolant::platform {

/// The numbers of a version as their digits in the text, leading zeros included.
struct ParsedVersion {
    std::string major;
    std::string minor;
    std::string patch;
    std::string build;

    friend bool operator==(const ParsedVersion&, const ParsedVersion&) = default;
};

/// Reads the version at the end of the text: three runs of digits separated by single full stops,
/// one or more characters other than digits, and a final run of digits. Ignores the text before
/// them. Returns nothing for any other text.
[[nodiscard]] std::optional<ParsedVersion> versionIn(std::string_view text);

/// Compares major, minor, patch and build as numbers. A number above 2147483647 counts as
/// 2147483647.
[[nodiscard]] std::strong_ordering compareVersions(const ParsedVersion& left,
                                                   const ParsedVersion& right);

/// Whether both texts contain a version, and that of `text` is strictly higher than that of
/// `other`.
[[nodiscard]] bool isHigherVersion(std::string_view text, std::string_view other);

/// Whether both texts contain a version, with equal numbers.
[[nodiscard]] bool isSameVersion(std::string_view text, std::string_view other);

/// Whether the version belongs to the channel of pre-release builds: it begins with 99.99.99.
[[nodiscard]] bool isPreRelease(std::string_view version);

}  // namespace teravolant::platform
