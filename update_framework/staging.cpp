// The staged update and its installation.
//
// The staging folder is beside the installed bundle, so that both are on one file system. It
// contains a folder with the unpacked archive, whose name begins the digest of the archive. The
// record staged.plist in the cache folder names the new bundle; it is written last, after the tree
// is flushed, and removed first. A folder without a record is therefore incomplete, and the next
// cycle removes it. The record of a newer update replaces that of an older one, whose folder is
// then removed.
//
// The installation exchanges the new and the old bundle with one rename, flushes the parent folder
// and then removes the record and the staging folder, which now contains the old bundle. On a file
// system without that exchange, two renames move the old bundle into the staging folder and the new
// one to the target. If the process is killed between them, nothing is at the target, and
// `repairInstallation` moves the old bundle back.
#include "update_framework/staging.h"

#include <cerrno>
#include <system_error>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/crypto/encodings.h"
#include "platform/files/durable_file.h"
#include "platform/files/exchange.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/files/private_directory.h"
#include "update_framework/record.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

fs::path recordPath(const fs::path& cacheFolder) { return cacheFolder / "staged.plist"; }

/// Where the old bundle is between the two renames.
fs::path asidePath(const fs::path& target) { return stagingFolderFor(target) / ".previous.app"; }

Status notInstalled(const StagedUpdate& update, int errorNumber) {
    const std::string attempt = "The update to version " + update.version +
                                " could not be installed at " + quoted(update.target.string());
    return updaterError(
        SQRLUpdaterErrorInstallationFailed,
        errorFromErrno(errorNumber, FileAccess::Write, attempt)->localizedDescription);
}

/// Returns 0 or an `errno` value.
int renameItem(const fs::path& from, const fs::path& to) {
    std::error_code failure;
    fs::rename(from, to, failure);
    return failure.value();
}

/// Returns 0 or an `errno` value.
int replaceWithTwoRenames(const StagedUpdate& update) {
    const fs::path aside = asidePath(update.target);
    if (const int failure = renameItem(update.target, aside)) {
        return failure;
    }
    const int failure = renameItem(update.staged, update.target);
    if (failure != 0) {
        renameItem(aside, update.target);
    }
    return failure;
}

/// A path may contain bytes that a property list can't.
fs::path pathIn(Record& record, const std::string& name) {
    return base64Decoded(record[name]).value_or("");
}

/// Whether the paths of a record can be those of an update that `writeStagedUpdate` recorded.
/// Nothing outside of the staging folder may be moved or removed because of a damaged record.
bool isPlausible(const StagedUpdate& update) {
    return update.target.is_absolute() && update.target == update.target.lexically_normal() &&
           update.staged == update.staged.lexically_normal() && update.staged.has_filename() &&
           isInside(update.staged.parent_path(), stagingFolderFor(update.target));
}

}  // namespace

fs::path stagingFolderFor(const fs::path& target) {
    return target.parent_path() / ("." + target.filename().string() + ".update-" + userIdText());
}

std::optional<StagedUpdate> readStagedUpdate(const fs::path& cacheFolder) {
    Record record = readRecord(recordPath(cacheFolder));
    StagedUpdate update{.version = record["version"],
                        .treeDigest = record["treeDigest"],
                        .staged = pathIn(record, "staged"),
                        .target = pathIn(record, "target")};
    return isPlausible(update) ? std::optional(std::move(update)) : std::nullopt;
}

Status writeStagedUpdate(const fs::path& cacheFolder, const StagedUpdate& update) {
    return writeRecord(recordPath(cacheFolder),
                       {{"version", update.version},
                        {"treeDigest", update.treeDigest},
                        {"staged", base64Encoded(update.staged.native())},
                        {"target", base64Encoded(update.target.native())}});
}

void discardStaging(const fs::path& cacheFolder, const fs::path& target) {
    repairInstallation(target);
    std::error_code notThere;
    fs::remove(recordPath(cacheFolder), notThere);
    // If this fails, the next cycle finds the folder by its name and tries again.
    (void)removeTree(stagingFolderFor(target));
}

void removeUnrecordedStaging(const fs::path& cacheFolder, const fs::path& target) {
    const auto record = readStagedUpdate(cacheFolder);
    const fs::path folder = stagingFolderFor(target);
    if (!record || record->target != target || !isPrivateDirectory(folder)) {
        discardStaging(cacheFolder, target);
        return;
    }
    repairInstallation(target);
    const fs::path kept = folder / *record->staged.lexically_relative(folder).begin();
    std::error_code unreadable;
    for (fs::directory_iterator items(folder, unreadable), end; !unreadable && items != end;
         items.increment(unreadable)) {
        if (items->path() != kept) {
            (void)removeTree(items->path());
        }
    }
}

Status installStagedUpdate(const fs::path& cacheFolder, const StagedUpdate& update) {
    int failure = exchangeItems(update.staged, update.target);
    if (failure == ENOTSUP) {
        failure = replaceWithTwoRenames(update);
    }
    if (failure != 0) {
        return notInstalled(update, failure);
    }
    // Before the flush, a power failure may undo the exchange, and the old bundle must still exist.
    // If the flush fails, the next cycle removes it.
    if (flushFolderOf(update.target) == 0) {
        discardStaging(cacheFolder, update.target);
    }
    return std::nullopt;
}

void repairInstallation(const fs::path& target) {
    if (!fileExists(target) && isPrivateDirectory(stagingFolderFor(target)) &&
        fileExists(asidePath(target))) {
        (void)moveItem(asidePath(target), target);
    }
}

}  // namespace teravolant::platform
