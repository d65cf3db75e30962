#include "update_framework/module/run_update_cycle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/archives/archives.h"
#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/text.h"
#include "platform/files/files.h"
#include "platform/http/http.h"
#include "update_framework/module/archive_download.h"
#include "update_framework/module/offer_verification.h"
#include "update_framework/module/tree_digest.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

/// Removes what is left of updates that can't come to anything any more: one that was installed,
/// and a tree without a record, which was never finished.
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

/// For a feed that offers nothing newer: what an earlier one offered was withdrawn.
void discardEarlierOffers(const UpdateCycle& cycle) {
    discardStaging(cycle.cacheFolder, cycle.bundlePath);
    removeDownloads(cycle.cacheFolder);
}

/// Whether it is a folder that only this user can change.
bool isOwnFolder(const fs::path& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// The staged update when it is the offered one and whole.
std::optional<StagedUpdate> alreadyStaged(const UpdateCycle& cycle, const SQRLUpdate& offer) {
    auto record = readStagedUpdate(cycle.cacheFolder);
    if (!record || record->target != cycle.bundlePath || record->version != offer.version ||
        !equalIgnoringCase(record->archiveSha256, *offer.sha256)) {
        return std::nullopt;
    }
    const auto digest = digestOfTree(record->staged);
    if (!isOwnFolder(stagingFolderFor(record->target)) || !digest ||
        *digest != record->treeDigest) {
        return std::nullopt;
    }
    return record;
}

/// Makes the empty staging folder, before anything is downloaded that could not be installed.
Status makeStagingFolder(const UpdateCycle& cycle) {
    discardStaging(cycle.cacheFolder, cycle.bundlePath);
    const fs::path folder = stagingFolderFor(cycle.bundlePath);
    // A folder that somebody else has put there is none to build on.
    if (access(cycle.bundlePath.c_str(), W_OK) == 0 && mkdir(folder.c_str(), S_IRWXU) == 0) {
        return std::nullopt;
    }
    return errorFromErrno(
        errno, FileAccess::Write,
        "The bundle “" + cycle.bundlePath.string() + "” can't be replaced by this user");
}

Error refusedBundle(const std::string& reason) {
    return updaterError(SQRLUpdaterErrorRefusedBundle, "The update's bundle is refused: " + reason);
}

/// Nothing when the bundle is what the offer said. The offered version was found to be newer than
/// the running one, so that one that equals it is newer as well.
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

/// Lets the staged bundle be moved, which a folder that is closed to its owner can't be, nor what
/// is in it.
void openFoldersDownTo(const fs::path& staged, fs::path folder) {
    std::error_code refused;
    for (const fs::path& name : staged.lexically_relative(folder)) {
        folder /= name;
        fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, refused);
    }
}

/// Has the file system write all that it holds back, the unpacked tree among it.
Status flushFileSystemOf(const fs::path& folder) {
    const FileDescriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor || syncfs(descriptor.get()) != 0) {
        return errorFromErrno(errno, FileAccess::Write,
                              "The update in “" + folder.string() + "” could not be flushed");
    }
    return std::nullopt;
}

/// Unpacks the verified archive beside the bundle and checks what it holds.
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
    if (auto error = flushFileSystemOf(folder)) {
        return error;
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

Result<StagedUpdate> bringIn(const UpdateCycle& cycle, const SQRLUpdate& offer) {
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
        // A verified archive that there was no room to unpack is kept for the next cycle.
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
    auto answer = sendHttpRequest({.url = url}, {.maximumBodySize = kLargestFeed}, stop);
    if (!answer) {
        return answer.error();
    }
    HttpResponse response = *std::move(answer);
    if (response.status == 204) {
        return std::optional<std::string>();
    }
    if (response.status != 200 || response.body.empty()) {
        return updaterError(SQRLUpdaterErrorInvalidServerResponse,
                            "The update server answered with status " +
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
    auto staged = bringIn(cycle, *offer);
    if (!staged) {
        return staged.error();
    }
    return std::optional(*std::move(staged));
}

}  // namespace teravolant::platform
