// The order of the steps: the record of the unconfirmed version, the exchange, the check, and the
// removal of the record of the staged update. After a kill in between, the old bundle is in place
// with the update still staged, or the new one with the record of the unconfirmed version, so that
// failing starts lead back to the old one.
#include "update_framework/installing.h"

#include <utility>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/utc_time.h"
#include "platform/files/durable_file.h"
#include "platform/files/files.h"
#include "platform/system/bundle.h"
#include "update_framework/bundle_exchange.h"
#include "update_framework/first_starts.h"
#include "update_framework/refusals.h"
#include "update_framework/updater_error.h"
#include "update_framework/validation.h"

namespace teravolant::platform {
namespace {

Status notInstalled(const StagedUpdate& update, const Error& reason) {
    return updaterError(
        isBadBundle(reason) ? SQRLUpdaterErrorRefusedBundle : SQRLUpdaterErrorInstallationFailed,
        "The update to version " + update.version + " could not be installed at " +
            quoted(update.target.string()) + ": " + reason.localizedDescription);
}

Status recordNewVersion(const StagedUpdate& update) {
    const auto installed = Bundle::bundleWithPath(update.target);
    return recordUnconfirmed(
        update.target,
        {.version = update.version,
         .digest = update.digest,
         .previousVersion =
             (installed ? installed->shortVersion() : std::nullopt).value_or(kMissingValueMark),
         .previous = update.staged});
}

/// Puts the old bundle back after the new one failed its check.
Status rollBack(const std::filesystem::path& cacheFolder, const StagedUpdate& update,
                const Error& reason) {
    if (const auto error = exchangeBundles(update.staged, update.target)) {
        return updaterError(
            SQRLUpdaterErrorInstallationFailed,
            reason.localizedDescription +
                " The old bundle could not be put back: " + error->localizedDescription);
    }
    (void)removeItem(unconfirmedRecordPath(update.target));  // Without effect now.
    if (isBadBundle(reason)) {
        Refusals(cacheFolder)
            .add(update.digest, Refusal::Bad, reason.localizedDescription, currentUtcTime());
        discardStaging(cacheFolder, update.target);
    }
    return notInstalled(update, reason);
}

}  // namespace

Status installStagedUpdate(const std::filesystem::path& cacheFolder, const StagedUpdate& update,
                           Confirmation confirmation) {
    confirmVersion(update.target);
    auto error =
        confirmation == Confirmation::FirstStarts ? recordNewVersion(update) : std::nullopt;
    error = error ? std::move(error) : exchangeBundles(update.staged, update.target);
    if (error) {
        (void)removeItem(unconfirmedRecordPath(update.target));
        return notInstalled(update, *error);
    }
    if (const auto failed = checkInPlace(update.target)) {
        return rollBack(cacheFolder, update, *failed);
    }
    // Before the exchange is flushed, a power failure may undo it: then keep the old bundle.
    if (confirmation == Confirmation::FirstStarts || flushFolderOf(update.target) == 0) {
        discardStaging(cacheFolder, update.target);
    }
    return std::nullopt;
}

}  // namespace teravolant::platform
