// One update cycle: feed, trust, download, unpack, check, stage.
//
// The cycle first removes what is installed or incomplete. Then it fetches the feed, and verifies
// the update that an earlier cycle staged: in a pause, another process may have changed it. The
// document's own version rule comes first, but a signed document that offers nothing new can still
// withdraw a version. Everything that the feed names is requested only after the offer is trusted.
// The archive is downloaded to the cache folder, unless it was refused before or the disk is too
// small, and staged.
//
// Only a signed document withdraws a staged update. Whatever else the server does, the staged
// update is returned, unless a newer one was staged in its place.
//
// A refused archive is removed and remembered. After any other failure, a part or the whole of the
// archive stays for the next cycle.
#include "update_framework/update_cycle.h"

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/version.h"
#include "platform/files/files.h"
#include "update_framework/archive_download.h"
#include "update_framework/bundle_staging.h"
#include "update_framework/feed_download.h"
#include "update_framework/offer_trust.h"
#include "update_framework/refusals.h"
#include "update_framework/tree_digest.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

using Staged = std::optional<StagedUpdate>;

std::string withReason(const std::string& what, const Error& error) {
    return what + ": " + escaped(error.localizedDescription);
}

std::string versionText(std::string_view version) { return "version " + escaped(version); }

/// Removes the staging and the download of what is not newer than the running bundle, and what a
/// killed cycle left. Returns the record of the staged update that is left, whose tree is not
/// verified.
Staged recordedStaging(const UpdateCycle& cycle) {
    auto record = readStagedUpdate(cycle.cacheFolder);
    if (record && record->target != cycle.bundlePath) {
        // Another bundle with this identifier removes its own staging, under its own lock. Nothing
        // at its place: it was moved, or its installation was interrupted.
        if (!fileExists(record->target)) {
            discardStaging(cycle.cacheFolder, record->target);
        }
        record.reset();
    }
    if (record && !isHigherVersion(record->version, cycle.installation.bundleVersion)) {
        discardStaging(cycle.cacheFolder, cycle.bundlePath);
        record.reset();
    }
    removeUnrecordedStaging(cycle.cacheFolder, cycle.bundlePath);
    const std::string& newest = record ? record->version : cycle.installation.bundleVersion;
    if (!isHigherVersion(downloadedVersion(cycle.cacheFolder), newest)) {
        removeDownloads(cycle.cacheFolder);
    }
    return record;
}

/// The same. Verifies the tree, and discards it if it was changed, or failed after it was
/// installed.
Staged intactStaging(const UpdateCycle& cycle) {
    auto record = recordedStaging(cycle);
    if (!record) {
        return std::nullopt;
    }
    const std::string what = "discarded the staged " + versionText(record->version);
    const auto refused = Refusals(cycle.cacheFolder).check(record->digest, cycle.wallTime());
    const auto digest = digestOfTree(record->staged);
    if (!refused && digest && *digest == record->treeDigest) {
        return record;
    }
    cycle.log(refused  ? withReason(what, *refused)
              : digest ? what + ": it was changed"
                       : withReason(what, digest.error()));
    discardStaging(cycle.cacheFolder, cycle.bundlePath);
    return std::nullopt;
}

/// Returns the signed offer of the document if it is authentic and no later document was seen
/// before.
Result<Offer> trustedOffer(const UpdateCycle& cycle, const Result<SignedDocument>& document) {
    if (!document) {
        return document.error();
    }
    auto authentic = authenticOfferIn(*document, cycle.installation);
    if (!authentic) {
        return authentic.error();
    }
    if (auto error = cycle.history.accept(*authentic)) {
        if (isUpdaterError(*error, SQRLUpdaterErrorRefusedOffer)) {
            return error;
        }
        // A preference file that can't be written must not keep the installation from updates.
        cycle.log(withReason("the order of documents is not kept", *error));
    }
    return std::move(authentic->offer);
}

/// Follows what a trusted document says about versions other than the offered one, even if the
/// document has expired or offers nothing newer.
void applyDocument(const UpdateCycle& cycle, const Offer& offer, Staged& staged) {
    const std::string& running = cycle.installation.bundleVersion;
    if (!checkNotExpired(offer, cycle.installation, cycle.wallTime())) {
        (void)cycle.history.recordSeen(cycle.wallTime());  // If it fails, the next check records.
    }
    if (staged && withdraws(offer, staged->version)) {
        cycle.log("discarded the staged " + versionText(staged->version) + ": it is withdrawn");
        discardStaging(cycle.cacheFolder, cycle.bundlePath);
        staged.reset();
    }
    if (withdraws(offer, downloadedVersion(cycle.cacheFolder))) {
        removeDownloads(cycle.cacheFolder);
    }
    if (withdraws(offer, running)) {
        cycle.log("the running " + versionText(running) + " is withdrawn");
    }
}

/// Returns why a trusted offer can't be taken, or nothing.
Status refusalOf(const UpdateCycle& cycle, const Offer& offer, const std::string& url) {
    if (auto error = checkUsable(offer, url, cycle.feedURL, cycle.installation, cycle.wallTime())) {
        return error;
    }
    return Refusals(cycle.cacheFolder).check(offer.digest, cycle.wallTime());
}

/// Whether the roll-out includes this installation. Logs if not.
bool isIncludedInRollout(const UpdateCycle& cycle, const Offer& offer) {
    if (offer.rollout.value_or(100) == 100 ||
        overridesRollout(offer, cycle.installation.bundleVersion)) {
        return true;
    }
    const auto localId = cycle.history.localId();
    if (localId && isInRollout(offer, *localId)) {
        return true;
    }
    const std::string what = versionText(offer.version) + " is offered to " +
                             std::to_string(*offer.rollout) +
                             " % of the installations, not yet to this one";
    if (cycle.ignoresRollout) {
        cycle.log(what + ": taken at the user's request");
        return true;
    }
    cycle.log(localId ? what : withReason(what, localId.error()));
    return false;
}

/// Remembers an archive that must not be downloaded again soon, and removes it.
void rememberRefusal(const UpdateCycle& cycle, const Offer& offer, Refusal refusal,
                     const Error& error) {
    (void)Refusals(cycle.cacheFolder)
        .add(offer.digest, refusal, error.localizedDescription, cycle.wallTime());
    removeDownloads(cycle.cacheFolder);
    cycle.log(withReason("refused " + versionText(offer.version), error));
}

/// Downloads and stages the bundle of an offer that is taken.
Result<StagedUpdate> downloadAndStage(const UpdateCycle& cycle, const Offer& offer,
                                      const SignedDocument& document, const std::string& url) {
    cycle.downloadBegins();
    const auto archive = downloadArchive(
        cycle, {.version = offer.version, .url = url, .size = offer.size, .digest = offer.digest},
        {spaceForTree(cycle, offer)});
    if (!archive) {
        if (isUpdaterError(archive.error(), SQRLUpdaterErrorRefusedArchive)) {
            rememberRefusal(cycle, offer, Refusal::OtherBytes, archive.error());
        }
        return archive.error();
    }
    // In a pause of the download, another process may have staged an update.
    if (auto other = intactStaging(cycle)) {
        if (!isHigherVersion(offer.version, other->version)) {
            return *std::move(other);
        }
    }
    auto staged = stageBundle(cycle, {.offer = offer, .document = document, .archive = *archive});
    if (staged) {
        cycle.log("took " + versionText(offer.version) + ": archive of " +
                  std::to_string(offer.size) + " bytes, " + std::to_string(archive->fetched) +
                  " of them fetched now");
        Refusals(cycle.cacheFolder).remove(offer.digest);
        removeDownloads(cycle.cacheFolder);
    } else if (isBadUpdate(staged.error())) {
        rememberRefusal(cycle, offer, Refusal::Bad, staged.error());
    }
    return staged;
}

/// Returns the update that the document offers, staged, or nothing if it is not taken or not newer
/// than the staged one. Resets `staged` if the document withdraws that.
Result<Staged> updateIn(const UpdateCycle& cycle, const std::string& body, Staged& staged) {
    const auto update = cycle.updateFromJSONData(body).subscribe();
    const auto document = signedDocumentIn(body);
    const auto offer = trustedOffer(cycle, document);
    if (offer) {
        applyDocument(cycle, *offer, staged);
    }
    if (!update) {
        return update.error();
    }
    if (!offer) {
        cycle.log(withReason("refused " + versionText(update->version), offer.error()));
        return offer.error();
    }
    if (staged && !isHigherVersion(offer->version, staged->version)) {
        return Staged();
    }
    if (auto error = refusalOf(cycle, *offer, update->updateURL)) {
        return error;
    }
    if (!isIncludedInRollout(cycle, *offer)) {
        return Staged();
    }
    if (isPreRelease(offer->version) != isPreRelease(cycle.installation.bundleVersion)) {
        cycle.log("the feed that this user has set offers another channel: " +
                  versionText(offer->version));
    }
    auto next = downloadAndStage(cycle, *offer, *document, update->updateURL);
    return next ? Result<Staged>(*std::move(next)) : next.error();
}

/// The same for the server's response, whatever it is.
Result<Staged> updateFrom(const Result<std::optional<std::string>>& feed, const UpdateCycle& cycle,
                          Staged& staged) {
    if (!feed) {
        return feed.error();
    }
    if (!*feed) {
        cycle.log("the server offers no update");
        return Staged();
    }
    return updateIn(cycle, **feed, staged);
}

/// A server can hide updates with a 204 or an old document: logs that no valid document has arrived
/// for a long time.
void logSilence(const UpdateCycle& cycle) {
    constexpr std::chrono::days kLongest(30);
    const auto silence = cycle.history.daysUnseen(cycle.wallTime());
    if (silence >= kLongest) {
        cycle.log("no valid signed document for " + std::to_string(silence.count()) +
                  " days: the server can't be reached, or hides updates");
    }
}

/// Whether another process left the staged update alone in the pauses of a download.
bool isStillRecorded(const UpdateCycle& cycle, const StagedUpdate& staged) {
    const auto record = readStagedUpdate(cycle.cacheFolder);
    return record && record->staged == staged.staged;
}

/// Whether the cycle ended without its locks: another process may be changing the staged update.
bool isStopped(const Error& error) {
    return isUpdaterError(error, SQRLUpdaterErrorCheckNotPossible);
}

}  // namespace

Result<std::optional<StagedUpdate>> runUpdateCycle(const UpdateCycle& cycle) {
    (void)recordedStaging(cycle);
    const auto feed = downloadFeed(cycle);
    if (!feed && isStopped(feed.error())) {
        return feed.error();
    }
    // In a pause, another process may have staged or discarded an update.
    auto staged = intactStaging(cycle);
    auto next = updateFrom(feed, cycle, staged);
    logSilence(cycle);
    if (!staged || (next && *next) || (!next && isStopped(next.error())) ||
        !isStillRecorded(cycle, *staged)) {
        return next;
    }
    const std::string outcome = versionText(staged->version) + " is staged already";
    cycle.log(next ? outcome : withReason(outcome + ". The check failed", next.error()));
    return staged;
}

}  // namespace teravolant::platform
