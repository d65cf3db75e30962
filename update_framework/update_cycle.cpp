// One update cycle: feed, offer, download, unpack, check, stage.
//
// The cycle first removes the staging of an update that is installed or was never completed. Then
// it fetches the feed and verifies the signature of its offer; nothing that the feed names is
// requested before that. If the offered bundle is already staged and its digest is unchanged, the
// cycle returns it. Otherwise it downloads the archive to the cache folder, unless this archive was
// refused before or the disk is too small, and compares its digest with the signed one. It has the
// archive unpacked into a new staging folder. The updater selects the bundle there; its version and
// its executable are checked. The tree is flushed before the record that makes it a staged update
// is written, so that a record never names an incomplete tree.
//
// A refused archive is removed and remembered. After any other failure, a part or the whole of the
// archive stays for the next cycle.
#include "update_framework/update_cycle.h"

#include <algorithm>
#include <future>
#include <system_error>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/exchange.h"
#include "platform/files/free_space.h"
#include "platform/files/private_directory.h"
#include "platform/system/fetch_program.h"
#include "platform/system/operating_system.h"
#include "update_framework/archive_download.h"
#include "update_framework/archive_unpacking.h"
#include "update_framework/offer_verification.h"
#include "update_framework/refusals.h"
#include "update_framework/retry_schedule.h"
#include "update_framework/tree_digest.h"
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

/// Returns the bytes of all files, as far as they can be read.
std::uint64_t sizeOfTree(const fs::path& folder) {
    std::uint64_t sum = 0;
    std::error_code unreadable;
    for (fs::recursive_directory_iterator walk(folder, unreadable), end; !unreadable && walk != end;
         walk.increment(unreadable)) {
        std::error_code unknown;
        const bool isFile = walk->symlink_status(unknown).type() == fs::file_type::regular;
        const std::uint64_t size = isFile ? fs::file_size(walk->path(), unknown) : 0;
        sum += unknown ? 0 : size;
    }
    return sum;
}

/// The offer does not state the size of the tree: the new bundle is assumed to be as large as the
/// installed one, and at least as large as its archive.
std::vector<NeededSpace> spaceForTree(const UpdateCycle& cycle, const SQRLUpdate& offer) {
    return {{.folder = cycle.bundlePath.parent_path(),
             .bytes = std::max(*offer.size, sizeOfTree(cycle.bundlePath))}};
}

/// Creates an empty staging folder.
Status makeStagingFolder(const UpdateCycle& cycle) {
    discardStaging(cycle.cacheFolder, cycle.bundlePath);
    const fs::path folder = stagingFolderFor(cycle.bundlePath);
    // An existing directory may belong to another user and can't be trusted: it is an error.
    const int failure = createPrivateDirectory(folder);
    return failure == 0 ? Status()
                        : errorFromErrno(failure, FileAccess::Write,
                                         "The folder " + quoted(folder.string()) +
                                             " could not be created for the update");
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

/// Returns the checked bundle of the verified archive, unpacked beside the installed one.
Result<Bundle> unpackAndCheck(const UpdateCycle& cycle, const SQRLUpdate& offer,
                              const DownloadedArchive& archive) {
    const fs::path folder = stagingFolderFor(cycle.bundlePath);
    if (auto error = unpackDownloadedArchive(archive, folder, cycle.unpackPatience)) {
        return error;
    }
    auto bundle = cycle.matchingBundle(folder).subscribe();
    if (bundle) {
        if (auto error = checkBundle(*bundle, offer)) {
            return error;
        }
    }
    return bundle;
}

/// Flushes the unpacked bundle and records it.
Result<StagedUpdate> record(const UpdateCycle& cycle, const SQRLUpdate& offer,
                            const Bundle& bundle) {
    const fs::path folder = stagingFolderFor(cycle.bundlePath);
    const fs::path& staged = bundle.bundlePath();
    openFoldersDownTo(staged, folder);
    // The disk writes while the processor computes the digest.
    auto flushed = std::async([&folder] { return flushFileSystemOf(folder); });
    auto digest = digestOfTree(staged);
    const int failure = flushed.get();
    if (!digest) {
        return digest.error();
    }
    if (failure != 0) {
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

/// Remembers an archive that must not be downloaded again soon, and removes it.
void refuse(const UpdateCycle& cycle, const SQRLUpdate& offer, Refusal refusal,
            const Error& error) {
    Refusals(cycle.cacheFolder)
        .add(lowerCase(*offer.sha256), refusal, error.localizedDescription, cycle.wallTime());
    removeDownloads(cycle.cacheFolder);
    cycle.log("refused version " + escaped(offer.version) + ": " +
              escaped(error.localizedDescription));
}

bool isRefusedBundle(const Error& error) {
    return error.domain == SQRLUpdaterErrorDomain &&
           (error.code == SQRLUpdaterErrorRefusedBundle ||
            error.code == SQRLUpdaterErrorMissingUpdateBundle);
}

Result<StagedUpdate> stage(const UpdateCycle& cycle, const SQRLUpdate& offer,
                           const DownloadedArchive& archive) {
    if (auto error = makeStagingFolder(cycle)) {
        return error;
    }
    const auto bundle = unpackAndCheck(cycle, offer, archive);
    auto staged = bundle ? record(cycle, offer, *bundle) : Result<StagedUpdate>(bundle.error());
    if (!staged) {
        discardStaging(cycle.cacheFolder, cycle.bundlePath);
        if (isFaultOfArchive(staged.error()) || isRefusedBundle(staged.error())) {
            refuse(cycle, offer, Refusal::Bad, staged.error());
        }
        if (staged.error().code == NSFileWriteOutOfSpaceError) {
            const auto needed = spaceForTree(cycle, offer).front();
            return outOfSpaceError(needed.folder, needed.bytes);
        }
    }
    return staged;
}

/// Returns the offered update, staged. Downloads it if it is not staged already.
Result<StagedUpdate> downloadAndStage(const UpdateCycle& cycle, const SQRLUpdate& offer) {
    if (auto staged = alreadyStaged(cycle, offer)) {
        removeDownloads(cycle.cacheFolder);
        cycle.log("version " + escaped(offer.version) + " is already staged");
        return *std::move(staged);
    }
    discardStaging(cycle.cacheFolder, cycle.bundlePath);
    const Refusals refusals(cycle.cacheFolder);
    if (auto error = refusals.check(lowerCase(*offer.sha256), cycle.wallTime())) {
        return error;
    }
    cycle.downloadBegins();
    const auto archive = downloadArchive(cycle, offer, spaceForTree(cycle, offer));
    if (!archive) {
        if (archive.error().domain == SQRLUpdaterErrorDomain &&
            archive.error().code == SQRLUpdaterErrorRefusedArchive) {
            refuse(cycle, offer, Refusal::OtherBytes, archive.error());
        }
        return archive.error();
    }
    auto staged = stage(cycle, offer, *archive);
    if (staged) {
        cycle.log("took version " + escaped(offer.version) + ": archive of " +
                  std::to_string(archive->size) + " bytes, " + std::to_string(archive->fetched) +
                  " of them fetched now");
        refusals.remove(lowerCase(*offer.sha256));
        removeDownloads(cycle.cacheFolder);
    }
    return staged;
}

/// Repeats the request until it has a response that is not transient.
Result<HttpResponse> requestFeed(const UpdateCycle& cycle) {
    RetrySchedule schedule(cycle.now());
    const HttpRequest request{
        .url = cycle.feedURL,
        .headers = {{"User-Agent", userAgent("Teravolant", cycle.bundleVersion)}}};
    HttpOptions options = cycle.transfer;
    options.maximumBodySize = kLargestFeed;
    while (true) {
        auto response = sendHttpRequest(request, options, transferInProgram);
        if (response ? !isTransient(response->status) : !isTransient(response.error())) {
            return response;
        }
        const Error error =
            response ? *unexpectedStatus("the update feed", *response) : response.error();
        const auto next =
            schedule.next(cycle.now(), response ? response->retryAfter : std::nullopt);
        if (!next) {
            return error;
        }
        if (auto failure = pauseBeforeRetry(cycle, *next, error)) {
            return failure;
        }
    }
}

}  // namespace

Status pauseBeforeRetry(const UpdateCycle& cycle, Clock::Time next, const Error& error) {
    const auto pause = std::chrono::ceil<std::chrono::seconds>(next - cycle.now());
    cycle.log("trying again in " + std::to_string(pause.count()) +
              " s: " + escaped(error.localizedDescription));
    return cycle.pauseUntil(next);
}

Status unexpectedStatus(const std::string& what, const HttpResponse& response) {
    const bool isEmpty = response.status == 200;
    return updaterError(
        SQRLUpdaterErrorInvalidServerResponse,
        "The server responded to the request for " + what + " with status " +
            std::to_string(response.status) + (isEmpty ? " and an empty body: " : ": ") +
            escaped(response.url) +
            (response.proxy.empty() ? "" : " (through the proxy " + quoted(response.proxy) + ")"));
}

Result<std::optional<std::string>> feedIn(HttpResponse response) {
    if (response.status == 204) {
        return std::optional<std::string>();
    }
    if (response.status != 200 || response.body.empty()) {
        return unexpectedStatus("the update feed", response);
    }
    return std::optional(std::move(response.body));
}

Result<std::optional<StagedUpdate>> runUpdateCycle(const UpdateCycle& cycle) {
    removeStaleStaging(cycle);
    const auto response = requestFeed(cycle);
    if (!response) {
        return response.error();
    }
    const auto feed = feedIn(*response);
    if (!feed) {
        return feed.error();
    }
    if (!*feed) {
        cycle.log("up to date: the server offers no update");
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
    if (auto error = verifyOffer(*offer, cycle.feedURL, cycle.bundleIdentifier, cycle.publicKeys)) {
        cycle.log("refused version " + escaped(offer->version) + ": " +
                  escaped(error->localizedDescription));
        return error;
    }
    auto staged = downloadAndStage(cycle, *offer);
    if (!staged) {
        return staged.error();
    }
    return std::optional(*std::move(staged));
}

}  // namespace teravolant::platform
