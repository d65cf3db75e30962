#include <system_error>

#include "platform/core/text.h"
#include "platform/core/url.h"
#include "platform/files/directory_enumerator.h"
#include "platform/files/paths.h"
#include "support/logger.h"
#include "update_framework/updater_error.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

namespace fs = std::filesystem;
using platform::Bundle;
using platform::DirectoryEnumerator;
using platform::Error;
using platform::filled;
using platform::kMissingValueMark;

void log(const std::string& message) { Logger::sharedInstance().logMessage(message); }

std::optional<std::string> runningIdentity() { return Bundle::mainBundle().bundleIdentifier(); }

/// Refuses a bundle whose information property list is outside of it, through a link.
std::optional<Bundle> openBundle(const fs::path& path) {
    std::error_code unknown;
    const fs::path folder = fs::canonical(path, unknown);
    const fs::path information = fs::canonical(path / "Contents" / "Info.plist", unknown);
    if (unknown || !platform::isInside(information, folder)) {
        return std::nullopt;
    }
    return Bundle::bundleWithPath(path);
}

/// Returns the item's bundle if it has the identifier of the running one; else logs the reason,
/// except for items that are not packages.
std::optional<Bundle> matchingBundle(const DirectoryEnumerator::Item& item) {
    if (item.typeError) {
        log(filled("Error retrieving UTI for item at %@: %@",
                   {platform::fileUrl(item.path), printedForm(*item.typeError)}));
        return std::nullopt;
    }
    if (!item.isPackage) {
        return std::nullopt;
    }
    auto candidate = openBundle(item.path);
    if (!candidate) {
        log(filled("Could not open application bundle at %@", {platform::fileUrl(item.path)}));
        return std::nullopt;
    }
    const auto updateIdentity = candidate->bundleIdentifier();
    const auto identity = runningIdentity();
    log(
        filled("[ClientUpdater::updateBundleMatchingCurrentApplicationInDirectory] "
               "update id=%@, now id=%@",
               {updateIdentity.value_or(kMissingValueMark), identity.value_or(kMissingValueMark)}));
    return updateIdentity && updateIdentity == identity ? std::move(candidate) : std::nullopt;
}

platform::Result<Bundle> findBundle(const fs::path& folder) {
    const std::string folderUrl = platform::fileUrl(folder);
    DirectoryEnumerator enumerator(folder, [&folderUrl](const fs::path& item, const Error& error) {
        log(filled("Error enumerating item %@ within directory %@: %@",
                   {platform::fileUrl(item), folderUrl, printedForm(error)}));
    });
    while (const auto* item = enumerator.next()) {
        if (auto bundle = matchingBundle(*item)) {
            return *std::move(bundle);
        }
    }
    return platform::updaterError(
        platform::SQRLUpdaterErrorMissingUpdateBundle,
        filled(Bundle::mainBundle().localizedStringForKey(
                   "Could not locate update bundle for %@ within %@"),
               {runningIdentity().value_or(kMissingValueMark), folderUrl}));
}

}  // namespace

platform::RACSignal<Bundle> ClientUpdater::updateBundleMatchingCurrentApplicationInDirectory(
    fs::path folder) const {
    log("[ClientUpdater::updateBundleMatchingCurrentApplicationInDirectory]");
    const std::string name =
        filled("%@ -applicationBundleMatchingCurrentApplicationInDirectory: %@",
               {description(), platform::fileUrl(folder)});
    return platform::RACSignal<Bundle>::defer(
        name, [folder = std::move(folder)] { return findBundle(folder); });
}

}  // namespace teravolant
