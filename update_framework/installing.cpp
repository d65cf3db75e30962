// The order of the steps: the record of the unconfirmed version, the exchange, the check, the
// confirmation by the check, and the removal of the record of the staged update. After a kill in
// between, the old bundle is in place with the update still staged, or the new one with the record
// of the unconfirmed version, so that failing starts lead back to the old one.
#include "update_framework/installing.h"

#include <utility>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/utc_time.h"
#include "platform/files/files.h"
#include "platform/system/bundle.h"
#include "update_framework/bundle_exchange.h"
#include "update_framework/first_starts.h"
#include "update_framework/refusals.h"
#include "update_framework/updater_error.h"
#include "update_framework/updater_log.h"
#include "update_framework/validation.h"

namespace teravolant::platform {
namespace {

Status notInstalled(const StagedUpdate& update, const Error& reason) {
    return updaterError(
        isBadBundle(reason) ? SQRLUpdaterErrorRefusedBundle : SQRLUpdaterErrorInstallationFailed,
        "The update to version " + update.version + " could not be installed at " +
            quoted(update.target.string()) + ": " + reason.localizedDescription);
}

/// Settles the running version before another one is installed. A start of it that has reached its
/// termination confirms it: it can update itself. Any other process can't tell whether its starts
/// succeed, and puts the previous bundle back: the next version then replaces that one.
Status settleUnconfirmed(const std::filesystem::path& target) {
    if (isCountedStart()) {
        confirmVersion(target);
        return std::nullopt;
    }
    const auto isBack = returnToPrevious(target);
    return isBack ? Status() : Status(isBack.error());
}

/// Records the new version and puts it in its place.
Status exchange(const StagedUpdate& update) {
    const auto installed = Bundle::bundleWithPath(update.target);
    auto error = recordUnconfirmed(
        update.target,
        {.version = update.version,
         .digest = update.digest,
         .previousVersion =
             (installed ? installed->shortVersion() : std::nullopt).value_or(kMissingValueMark),
         .previous = update.staged});
    error = error ? std::move(error) : exchangeBundles(update.staged, update.target);
    if (error) {
        (void)removeItem(unconfirmedRecordPath(update.target));  // Without effect now.
    }
    return error;
}

/// Lets the installed version check itself. If that fails, puts the previous bundle back and
/// returns why, unless a start has confirmed the version in the meantime.
Status checkOrRollBack(const std::filesystem::path& cacheFolder,
                       const std::filesystem::path& target, const std::string& digest) {
    auto failed = checkInPlace(target);
    if (!failed) {
        return std::nullopt;
    }
    const auto isBack = returnToPrevious(target);
    if (!isBack) {
        return updaterError(SQRLUpdaterErrorInstallationFailed,
                            failed->localizedDescription +
                                " The previous bundle could not be put back: " +
                                isBack.error().localizedDescription);
    }
    if (!*isBack) {
        logUpdater("the check of the installed version failed, but a start of it succeeded: " +
                   escaped(failed->localizedDescription));
        return std::nullopt;
    }
    if (isBadBundle(*failed)) {
        (void)Refusals(cacheFolder)
            .add(digest, Refusal::Bad, failed->localizedDescription, currentUtcTime());
        discardStaging(cacheFolder, target);
    }
    return updaterError(
        isBadBundle(*failed) ? SQRLUpdaterErrorRefusedBundle : SQRLUpdaterErrorInstallationFailed,
        "Its check in place failed, and the previous bundle was put back. " +
            failed->localizedDescription);
}

}  // namespace

Status installStagedUpdate(const std::filesystem::path& cacheFolder, const StagedUpdate& update,
                           Confirmation confirmation) {
    auto error = settleUnconfirmed(update.target);
    error = error ? std::move(error) : exchange(update);
    error = error ? std::move(error) : checkOrRollBack(cacheFolder, update.target, update.digest);
    if (error) {
        return notInstalled(update, *error);
    }
    if (confirmation == Confirmation::SelfCheck) {
        confirmVersion(update.target);
    }
    discardStaging(cacheFolder, update.target);
    return std::nullopt;
}

Status completeInstallation(const std::filesystem::path& cacheFolder,
                            const std::filesystem::path& target) {
    const auto version = unconfirmedVersion(target);
    if (!version || !*version) {
        return version ? Status() : Status(version.error());
    }
    if (const auto error = checkOrRollBack(cacheFolder, target, (*version)->digest)) {
        return updaterError(SQRLUpdaterErrorInstallationFailed,
                            "Version " + (*version)->version +
                                " failed its check, and the previous version was put back: " +
                                error->localizedDescription);
    }
    confirmVersion(target);
    return std::nullopt;
}

}  // namespace teravolant::platform
