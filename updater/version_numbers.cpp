#include "updater/version_numbers.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <charconv>
#include <cstdint>
#include <limits>
#include <string_view>

#include "platform/core/text.h"
#include "platform/values/printed_form.h"
#include "support/logger.h"
#include "update_framework/updater_error.h"
#include "updater/client_updater.h"

namespace teravolant {
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

std::string printed(const ParsedVersion& version) {
    return platform::printedForm(platform::Value::Dictionary{{"major", version.major},
                                                             {"minor", version.minor},
                                                             {"patch", version.patch},
                                                             {"build", version.build}});
}

platform::Status versionError(std::string_view format,
                              std::initializer_list<std::string_view> values) {
    return platform::updaterError(
        platform::SQRLUpdaterErrorMissingUpdateBundle,
        platform::filled(platform::Bundle::mainBundle().localizedStringForKey(format), values));
}

}  // namespace

std::optional<ParsedVersion> ClientUpdater::parseVersion(const std::string& version,
                                                         ErrorSlot& error) {
    assert(!error);
    // Reading backwards needs no backtracking: the pattern is anchored at the end of the text, and
    // adjacent runs have no characters in common.
    std::string_view rest = version;
    const std::string_view build = takeRunFromEnd(rest, true);
    const std::string_view separator = takeRunFromEnd(rest, false);
    const std::string_view patch = takeNumberFromEnd(rest);
    const std::string_view minor = takeNumberFromEnd(rest);
    const std::string_view major = takeRunFromEnd(rest, true);
    if (build.empty() || separator.empty() || patch.empty() || minor.empty() || major.empty()) {
        error = versionError("%@ is illegal version", {version});
        return std::nullopt;
    }
    return ParsedVersion{.major = std::string(major),
                         .minor = std::string(minor),
                         .patch = std::string(patch),
                         .build = std::string(build)};
}

bool isVersionNewer(const std::string& current, const std::string& updateTo,
                    platform::Status& error) {
    const auto currentVersion = ClientUpdater::parseVersion(current, error);
    if (!currentVersion) {
        return false;
    }
    const auto offeredVersion = ClientUpdater::parseVersion(updateTo, error);
    if (!offeredVersion) {
        return false;
    }
    if (numbersOf(*offeredVersion) <= numbersOf(*currentVersion)) {
        error = versionError("%@ is not older than %@", {current, updateTo});
        return false;
    }
    return true;
}

bool ClientUpdater::checkUpdaterVersionNewer(const std::string& current,
                                             const std::string& updateTo, ErrorSlot& error) {
    if (!isVersionNewer(current, updateTo, error)) {
        return false;
    }
    const auto currentVersion = parseVersion(current, error);
    const auto offeredVersion = parseVersion(updateTo, error);
    Logger::sharedInstance().logMessage("[ClientUpdater::checkUpdaterVersionNewer] " +
                                        printed(*currentVersion) + " -> " +
                                        printed(*offeredVersion));
    return true;
}

}  // namespace teravolant
