// One update cycle: feed, offer, download, unpack, check, stage.
//
// The cycle first removes the staging of an update that is installed or was never completed. Then
// it fetches the feed and verifies the signature of its offer; nothing that the feed names is
// requested before that. If the offered bundle is already staged and its digest is unchanged, the
// cycle returns it. Otherwise it creates the staging folder (which fails early if the bundle can't
// be replaced), downloads the archive to the cache folder, compares its digest with the signed one,
// and unpacks it into the staging folder. The updater selects the bundle there; its version and its
// executable are checked. The tree is flushed before the record that makes it a staged update is
// written, so that a record never names an incomplete tree.
//
// A failed transfer keeps its part, and a full disk while unpacking keeps the archive, for the next
// cycle. Any other failure after the verification removes the staging folder and the archive.
#include "update_framework/module/run_update_cycle.h"

#include <system_error>

#include "platform/archives/archives.h"
#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/exchange.h"
#include "platform/files/private_directory.h"
#include "platform/http/http.h"
#include "update_framework/module/archive_download.h"
#include "update_framework/module/offer_verification.h"
#include "update_framework/module/tree_digest.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

/// Removes the staging of an update that is installed or belongs to another bundle, and a staging
/// folder without a record, which is incomplete.
void removeStaleStaging(const UpdateCycle& cycle) {
    const auto record = readStagedUpdate(cycle.cacheFolder);
    if (!record) {
        discardStaging(cycle.cacheFolder, cycle.bundlePath);
        return;
    }
    repairInstallation(record->target);
    if (record->version == cycle.bundleVersion || record->target != cycle.bundlePath) {
        discardStaging(cycle.cacheFolder, record->target);
    }
}

/// For a feed that offers no newer version: the publisher has withdrawn earlier offers.
void discardEarlierOffers(const UpdateCycle& cycle) {
    discardStaging(cycle.cacheFolder, cycle.bundlePath);
    removeDownloads(cycle.cacheFolder);
}

/// Returns the staged update if it is the offered one and unchanged.
std::optional<StagedUpdate> alreadyStaged(const UpdateCycle& cycle, const SQRLUpdate& offer) {
    auto record = readStagedUpdate(cycle.cacheFolder);
    if (!record || record->target != cycle.bundlePath || record->version != offer.version ||
        !equalIgnoringCase(record->archiveSha256, *offer.sha256)) {
        return std::nullopt;
    }
    const auto digest = digestOfTree(record->staged);
    if (!isPrivateDirectory(stagingFolderFor(record->target)) || !digest ||
        *digest != record->treeDigest) {
        return std::nullopt;
    }
    return record;
}

/// Creates an empty staging folder. Fails if this user can't replace the bundle.
Status makeStagingFolder(const UpdateCycle& cycle) {
    discardStaging(cycle.cacheFolder, cycle.bundlePath);
    const fs::path folder = stagingFolderFor(cycle.bundlePath);
    int failure = checkWritable(cycle.bundlePath);
    if (failure == 0) {
        // An existing directory may belong to another user and can't be trusted: it is an error.
        failure = createPrivateDirectory(folder);
    }
    return failure == 0 ? Status()
                        : errorFromErrno(failure, FileAccess::Write,
                                         "The bundle " + quoted(cycle.bundlePath.string()) +
                                             " can't be replaced by this user");
}

Status refusedBundle(const std::string& reason) {
    return updaterError(SQRLUpdaterErrorRefusedBundle, "The update's bundle is refused: " + reason);
}

/// Returns an error if the bundle does not have the offered version or can't run. The offered
/// version is already known to be newer than the running one.
Status checkBundle(const Bundle& bundle, const SQRLUpdate& offer) {
    const auto version = bundle.shortVersion();
    if (version != offer.version) {
        return refusedBundle("its version is " + version.value_or(kMissingValueMark) + " where " +
                             offer.version + " was offered.");
    }
    if (!bundle.canRun()) {
        return refusedBundle("its executable is not there or can't be run.");
    }
    return std::nullopt;
}

/// Adds the owner's permissions to the folders from `folder` down to the staged bundle: without
/// write permission the bundle can't be renamed.
void openFoldersDownTo(const fs::path& staged, fs::path folder) {
    std::error_code refused;
    for (const fs::path& name : staged.lexically_relative(folder)) {
        folder /= name;
        fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, refused);
    }
}

/// Unpacks the verified archive beside the bundle, checks the bundle in it and records it.
Result<StagedUpdate> stage(const UpdateCycle& cycle, const SQRLUpdate& offer,
                           const fs::path& archive) {
    const fs::path folder = stagingFolderFor(cycle.bundlePath);
    if (auto error = unpackArchive(archive, folder)) {
        return error;
    }
    const auto bundle = cycle.matchingBundle(folder).subscribe();
    if (!bundle) {
        return bundle.error();
    }
    if (auto error = checkBundle(*bundle, offer)) {
        return error;
    }
    const fs::path& staged = bundle->bundlePath();
    openFoldersDownTo(staged, folder);
    auto digest = digestOfTree(staged);
    if (!digest) {
        return digest.error();
    }
    if (const int failure = flushFileSystemOf(folder)) {
        return errorFromErrno(failure, FileAccess::Write,
                              "The update in " + quoted(folder.string()) + " could not be flushed");
    }
    StagedUpdate update{.version = offer.version,
                        .archiveSha256 = *offer.sha256,
                        .treeDigest = *std::move(digest),
                        .staged = staged,
                        .target = cycle.bundlePath};
    if (auto error = writeStagedUpdate(cycle.cacheFolder, update)) {
        return error;
    }
    return update;
}

/// Returns the offered update, staged. Downloads it if it is not staged already.
Result<StagedUpdate> downloadAndStage(const UpdateCycle& cycle, const SQRLUpdate& offer) {
    if (auto staged = alreadyStaged(cycle, offer)) {
        removeDownloads(cycle.cacheFolder);
        return *std::move(staged);
    }
    if (auto error = makeStagingFolder(cycle)) {
        return error;
    }
    cycle.downloadBegins();
    const auto archive = downloadArchive(offer, cycle.cacheFolder);
    auto staged = archive ? stage(cycle, offer, *archive) : Result<StagedUpdate>(archive.error());
    if (!staged) {
        discardStaging(cycle.cacheFolder, cycle.bundlePath);
        // If the disk is too full to unpack a verified archive, the next cycle can still use it.
        if (archive && staged.error().code != NSFileWriteOutOfSpaceError) {
            removeDownloads(cycle.cacheFolder);
        }
        return staged;
    }
    removeDownloads(cycle.cacheFolder);
    return staged;
}

}  // namespace

Result<std::optional<std::string>> fetchFeed(const std::string& url, const std::stop_token& stop) {
    auto received = sendHttpRequest({.url = url}, {.maximumBodySize = kLargestFeed}, stop);
    if (!received) {
        return received.error();
    }
    HttpResponse response = *std::move(received);
    if (response.status == 204) {
        return std::optional<std::string>();
    }
    if (response.status != 200 || response.body.empty()) {
        return updaterError(SQRLUpdaterErrorInvalidServerResponse,
                            "The update server responded with status " +
                                std::to_string(response.status) +
                                (response.body.empty() ? " and an empty body." : "."));
    }
    return std::optional(std::move(response.body));
}

Result<std::optional<StagedUpdate>> runUpdateCycle(const UpdateCycle& cycle) {
    removeStaleStaging(cycle);
    auto feed = fetchFeed(cycle.feedURL);
    if (!feed) {
        return feed.error();
    }
    if (!*feed) {
        discardEarlierOffers(cycle);
        return std::optional<StagedUpdate>();
    }
    const auto offer = cycle.updateFromJSONData(**feed).subscribe();
    if (!offer) {
        if (offer.error().code == SQRLUpdaterErrorMissingUpdateBundle) {
            discardEarlierOffers(cycle);
        }
        return offer.error();
    }
    if (auto error = verifyOffer(*offer, cycle.bundleIdentifier, cycle.publicKeys)) {
        return error;
    }
    auto staged = downloadAndStage(cycle, *offer);
    if (!staged) {
        return staged.error();
    }
    return std::optional(*std::move(staged));
}

}  // namespace teravolant::platform
