// The staging folder is beside the installed bundle, so that both are on one file system. It
// contains a folder with the unpacked archive, whose name begins the digest of the archive. The
// record staged.plist in the cache folder names the new bundle; it is written last, after the tree
// is flushed, and removed first. A folder without a record is therefore incomplete, and the next
// cycle removes it. The record of a newer update replaces that of an older one, whose folder is
// then removed. After an installation the folder contains the old bundle, until the new version is
// confirmed.
#include "update_framework/staging.h"

#include <set>
#include <system_error>

#include "platform/crypto/encodings.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/files/private_directory.h"
#include "platform/system/bundle.h"
#include "update_framework/bundle_exchange.h"
#include "update_framework/first_starts.h"
#include "update_framework/record.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

fs::path recordPath(const fs::path& cacheFolder) { return cacheFolder / "staged.plist"; }

/// A path may contain bytes that a property list can't.
fs::path pathIn(Record& record, const std::string& name) {
    return base64Decoded(record[name]).value_or("");
}

/// Whether the paths of a record can be those of an update that `writeStagedUpdate` recorded.
/// Nothing outside of the staging folder may be moved or removed because of a damaged record.
bool isPlausible(const StagedUpdate& update) {
    return !update.digest.empty() && update.target.is_absolute() &&
           update.target == update.target.lexically_normal() &&
           update.staged == update.staged.lexically_normal() && update.staged.has_filename() &&
           isInside(update.staged.parent_path(), stagingFolderFor(update.target));
}

/// Returns the item of `folder` that is, or contains, the item at `path`.
fs::path itemIn(const fs::path& folder, const fs::path& path) {
    return folder / *path.lexically_relative(folder).begin();
}

}  // namespace

fs::path stagingFolderFor(const fs::path& target) {
    return target.parent_path() / ("." + target.filename().string() + ".update-" + userIdText());
}

fs::path cacheFolderOf(const Bundle& bundle) {
    return cachesDirectory() / bundle.bundleIdentifier().value_or("");
}

Status prepareCacheFolder(const fs::path& cacheFolder) {
    if (auto error = preparePrivateDirectory(cacheFolder)) {
        return error;
    }
    std::error_code unreadable;
    for (fs::directory_iterator items(cacheFolder, unreadable), end; !unreadable && items != end;
         items.increment(unreadable)) {
        std::error_code notThere;
        if (items->is_directory(notThere) && !items->is_symlink(notThere)) {
            (void)removeTree(items->path());  // If it fails, using the name does.
        }
    }
    return std::nullopt;
}

std::optional<StagedUpdate> readStagedUpdate(const fs::path& cacheFolder) {
    Record record = readRecord(recordPath(cacheFolder));
    StagedUpdate update{.version = record["version"],
                        .digest = record["digest"],
                        .treeDigest = record["treeDigest"],
                        .staged = pathIn(record, "staged"),
                        .target = pathIn(record, "target")};
    return isPlausible(update) ? std::optional(std::move(update)) : std::nullopt;
}

Status writeStagedUpdate(const fs::path& cacheFolder, const StagedUpdate& update) {
    return writeRecord(recordPath(cacheFolder),
                       {{"version", update.version},
                        {"digest", update.digest},
                        {"treeDigest", update.treeDigest},
                        {"staged", base64Encoded(update.staged.native())},
                        {"target", base64Encoded(update.target.native())}});
}

void discardStaging(const fs::path& cacheFolder, const fs::path& target) {
    repairInstallation(target);
    std::error_code notThere;
    fs::remove(recordPath(cacheFolder), notThere);
    removeUnrecordedStaging(cacheFolder, target);
}

void removeUnrecordedStaging(const fs::path& cacheFolder, const fs::path& target) {
    repairInstallation(target);
    const fs::path folder = stagingFolderFor(target);
    const auto record = readStagedUpdate(cacheFolder);
    std::set<fs::path> kept;
    if (record && record->target == target) {
        kept.insert(itemIn(folder, record->staged));
    } else {
        std::error_code notThere;
        fs::remove(recordPath(cacheFolder), notThere);
    }
    const auto unconfirmed = unconfirmedVersion(target);
    if (!unconfirmed) {
        return;  // Unknown at this time: the previous bundle may be needed.
    }
    if (*unconfirmed) {
        repairInstallation(target, (*unconfirmed)->previous);
        kept.insert({itemIn(folder, (*unconfirmed)->previous), unconfirmedRecordPath(target)});
    }
    if (kept.empty() || !isPrivateDirectory(folder)) {
        (void)removeTree(folder);
        return;
    }
    std::error_code unreadable;
    for (fs::directory_iterator items(folder, unreadable), end; !unreadable && items != end;
         items.increment(unreadable)) {
        if (!kept.contains(items->path())) {
            (void)removeTree(items->path());
        }
    }
}

}  // namespace teravolant::platform
