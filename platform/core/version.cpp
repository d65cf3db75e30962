#include "platform/core/version.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>

namespace teravolant::platform {
namespace {

bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// Removes the longest run of digits, or of non-digits, from the end of the text and returns it.
std::string_view takeRunFromEnd(std::string_view& text, bool digits) {
    const auto end = std::find_if(text.rbegin(), text.rend(), [digits](char character) {
        return isDigit(character) != digits;
    });
    const auto length = static_cast<std::size_t>(end - text.rbegin());
    const std::string_view run = text.substr(text.size() - length);
    text.remove_suffix(length);
    return run;
}

/// Removes a run of digits and the full stop before it from the end of the text and returns the
/// run. Returns an empty run if either is missing.
std::string_view takeNumberFromEnd(std::string_view& text) {
    const std::string_view run = takeRunFromEnd(text, true);
    if (!text.ends_with('.')) {
        return {};
    }
    text.remove_suffix(1);
    return run;
}

/// Returns the value of the digits, saturated to 32 bits.
std::int32_t intValue(std::string_view digits) {
    std::int32_t value = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return read.ec == std::errc() ? value : std::numeric_limits<std::int32_t>::max();
}

std::array<std::int32_t, 4> numbersOf(const ParsedVersion& version) {
    return {intValue(version.major), intValue(version.minor), intValue(version.patch),
            intValue(version.build)};
}

}  // namespace

std::optional<ParsedVersion> versionIn(std::string_view text) {
    // Reading backwards needs no backtracking: the pattern is anchored at the end of the text, and
    // adjacent runs have no characters in common.
    const std::string_view build = takeRunFromEnd(text, true);
    const std::string_view separator = takeRunFromEnd(text, false);
    const std::string_view patch = takeNumberFromEnd(text);
    const std::string_view minor = takeNumberFromEnd(text);
    const std::string_view major = takeRunFromEnd(text, true);
    if (build.empty() || separator.empty() || patch.empty() || minor.empty() || major.empty()) {
        return std::nullopt;
    }
    return ParsedVersion{.major = std::string(major),
                         .minor = std::string(minor),
                         .patch = std::string(patch),
                         .build = std::string(build)};
}

std::strong_ordering compareVersions(const ParsedVersion& left, const ParsedVersion& right) {
    return numbersOf(left) <=> numbersOf(right);
}

bool isHigherVersion(std::string_view text, std::string_view other) {
    const auto version = versionIn(text);
    const auto otherVersion = versionIn(other);
    return version && otherVersion && std::is_gt(compareVersions(*version, *otherVersion));
}

bool isSameVersion(std::string_view text, std::string_view other) {
    const auto version = versionIn(text);
    const auto otherVersion = versionIn(other);
    return version && otherVersion && std::is_eq(compareVersions(*version, *otherVersion));
}

bool isPreRelease(std::string_view version) { return version.starts_with("99.99.99"); }

}  // namespace teravolant::platform
