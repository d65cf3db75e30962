#include "updater/version_numbers.h"

#include <cassert>

#include "platform/core/text.h"
#include "platform/values/printed_form.h"
#include "support/logger.h"
#include "update_framework/updater_error.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

/// Truncates long runs of digits: the server alone decides on them.
std::string printed(const ParsedVersion& version) {
    constexpr std::size_t kMostDigits = 40;
    const auto digits = [](const std::string& run) { return platform::escaped(run, kMostDigits); };
    return platform::printedForm(platform::Value::Dictionary{{"major", digits(version.major)},
                                                             {"minor", digits(version.minor)},
                                                             {"patch", digits(version.patch)},
                                                             {"build", digits(version.build)}});
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
    auto parsed = platform::versionIn(version);
    if (!parsed) {
        error = versionError("%@ is illegal version", {version});
    }
    return parsed;
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
    if (std::is_lteq(compareVersions(*offeredVersion, *currentVersion))) {
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
