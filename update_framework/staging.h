#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/core/result.h"

namespace teravolant::platform {

class Bundle;

/// A complete, flushed bundle that is ready to be installed, as recorded in the cache folder. It is
/// in the staging folder of the bundle that it replaces.
struct StagedUpdate {
    std::string version;
    std::string digest;            ///< Of the archive.
    std::string treeDigest;        ///< The signed `digestOfTree` of the bundle.
    std::filesystem::path staged;  ///< The new bundle.
    std::filesystem::path target;  ///< The bundle to replace.
};

/// Returns the folder beside the bundle, on the same file system, where this user's update of the
/// bundle is staged.
[[nodiscard]] std::filesystem::path stagingFolderFor(const std::filesystem::path& target);

/// Returns the folder of the user's cache that belongs to the bundle.
[[nodiscard]] std::filesystem::path cacheFolderOf(const Bundle& bundle);

/// Makes the cache folder private to its user (see `preparePrivateDirectory`) and removes the
/// folders in it. It contains only files, but a later version may have used their names otherwise.
[[nodiscard]] Status prepareCacheFolder(const std::filesystem::path& cacheFolder);

/// Returns nothing if the record is missing, unreadable or implausible.
[[nodiscard]] std::optional<StagedUpdate> readStagedUpdate(
    const std::filesystem::path& cacheFolder);

/// Atomically and durably replaces the record.
[[nodiscard]] Status writeStagedUpdate(const std::filesystem::path& cacheFolder,
                                       const StagedUpdate& update);

/// Repairs an interrupted installation, then removes the record and what `removeUnrecordedStaging`
/// removes, in this order: a kill leaves no record of an incomplete tree. Failures are ignored: the
/// next cycle tries again.
void discardStaging(const std::filesystem::path& cacheFolder, const std::filesystem::path& target);

/// Repairs an interrupted installation, then removes everything in the staging folder of `target`
/// that belongs neither to the recorded update nor to an unconfirmed version (see first_starts.h),
/// or the whole folder if nothing else is in it. Failures are ignored: the next cycle tries again.
void removeUnrecordedStaging(const std::filesystem::path& cacheFolder,
                             const std::filesystem::path& target);

}  // namespace teravolant::platform
