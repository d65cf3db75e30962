#include "update_framework/bundle_staging.h"

#include <future>
#include <system_error>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/exchange.h"
#include "platform/files/files.h"
#include "platform/files/private_directory.h"
#include "update_framework/archive_unpacking.h"
#include "update_framework/tree_digest.h"
#include "update_framework/updater_error.h"
#include "update_framework/validation.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

/// Creates an empty folder for the archive's contents, in the staging folder of the bundle. The
/// folder of an update that is staged already has another name.
Result<fs::path> makeFolder(const UpdateCycle& cycle, const Offer& offer) {
    constexpr std::size_t kNameLength = 16;
    const fs::path staging = stagingFolderFor(cycle.bundlePath);
    fs::path folder = staging / offer.digest.substr(0, kNameLength);
    // An existing directory may belong to another user and can't be trusted: it is an error.
    int failure = isPrivateDirectory(staging) ? 0 : createPrivateDirectory(staging);
    failure = failure == 0 ? createPrivateDirectory(folder) : failure;
    return failure == 0 ? Result<fs::path>(std::move(folder))
                        : errorFromErrno(failure, FileAccess::Write,
                                         "The folder " + quoted(folder.string()) +
                                             " could not be created for the update");
}

Status refusedBundle(const std::string& reason) {
    return updaterError(SQRLUpdaterErrorRefusedBundle, "The update's bundle is refused: " + reason);
}

/// Returns an error if the bundle does not have the offered version, could not take another update,
/// or its executable can't be run. The offered version is already known to be newer than the
/// running one.
Status checkBundle(const Bundle& bundle, const OfferedArchive& offered) {
    const Offer& offer = offered.offer;
    const auto version = bundle.shortVersion();
    if (version != offer.version) {
        return refusedBundle("its version is " + version.value_or(kMissingValueMark) + " where " +
                             offer.version + " was offered.");
    }
    if (!bundle.canRun()) {
        return refusedBundle("its executable is not there or can't be run.");
    }
    if (signersOf(offered.document, installationOf(bundle).publicKeys).empty()) {
        return refusedBundle(
            "none of its public keys signed the document that offers it, so it could not take "
            "another update.");
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

/// Returns the checked bundle of the archive, unpacked into `folder`.
Result<Bundle> unpackAndCheck(const UpdateCycle& cycle, const OfferedArchive& offered,
                              const fs::path& folder) {
    if (auto error = unpackDownloadedArchive(offered.archive, folder, cycle.unpackPatience)) {
        return error;
    }
    auto bundle = cycle.matchingBundle(folder).subscribe();
    if (bundle) {
        if (auto error = checkBundle(*bundle, offered)) {
            return error;
        }
    }
    return bundle;
}

/// Flushes the unpacked bundle. In the meantime, compares its tree with the signed digest and then
/// checks that it can run here.
Status verifyAndFlush(const fs::path& bundle, const fs::path& folder, const Offer& offer) {
    openFoldersDownTo(bundle, folder);
    // The disk writes while the processor is busy. Nothing of the bundle runs before it is
    // verified.
    auto flushed = std::async([&folder] { return flushFileSystemOf(folder); });
    const auto digest = digestOfTree(bundle);
    if (!digest) {
        return digest.error();
    }
    if (*digest != offer.tree) {
        return refusedBundle("the digest of its tree is not the one in the offer.");
    }
    auto error = validateBundle(bundle, folder);
    const int failure = flushed.get();
    return failure == 0 ? std::move(error)
                        : errorFromErrno(
                              failure, FileAccess::Write,
                              "The update in " + quoted(folder.string()) + " could not be flushed");
}

Result<StagedUpdate> stageInto(const fs::path& folder, const UpdateCycle& cycle,
                               const OfferedArchive& offered) {
    const auto bundle = unpackAndCheck(cycle, offered, folder);
    if (!bundle) {
        return bundle.error();
    }
    StagedUpdate update{.version = offered.offer.version,
                        .digest = offered.offer.digest,
                        .treeDigest = offered.offer.tree,
                        .staged = bundle->bundlePath(),
                        .target = cycle.bundlePath};
    auto error = verifyAndFlush(update.staged, folder, offered.offer);
    if (!error) {
        error = writeStagedUpdate(cycle.cacheFolder, update);
    }
    return error ? Result<StagedUpdate>(std::move(error)) : update;
}

}  // namespace

Result<StagedUpdate> stageBundle(const UpdateCycle& cycle, const OfferedArchive& offered) {
    const auto folder = makeFolder(cycle, offered.offer);
    auto staged =
        folder ? stageInto(*folder, cycle, offered) : Result<StagedUpdate>(folder.error());
    removeUnrecordedStaging(cycle.cacheFolder, cycle.bundlePath);
    if (!staged && staged.error().code == NSFileWriteOutOfSpaceError) {
        const auto needed = spaceForTree(cycle, offered.offer);
        return outOfSpaceError(needed.folder, needed.bytes);
    }
    return staged;
}

bool isBadUpdate(const Error& error) {
    return isFaultOfArchive(error) || isBadBundle(error) ||
           isUpdaterError(error, SQRLUpdaterErrorMissingUpdateBundle);
}

NeededSpace spaceForTree(const UpdateCycle& cycle, const Offer& offer) {
    return {.folder = cycle.bundlePath.parent_path(), .bytes = offer.unpackedSize};
}

}  // namespace teravolant::platform
