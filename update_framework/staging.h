#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/core/result.h"
#include "update_framework/sqrl_update.h"

namespace teravolant::platform {

/// A whole, flushed bundle that waits to take another one's place, as a small file in the cache
/// records it. It stands in the staging folder of the bundle that it is to replace.
struct StagedUpdate {
    std::string version;
    std::string archiveSha256;
    std::string treeDigest;        ///< `digestOfTree` of the staged bundle.
    std::filesystem::path staged;  ///< The new bundle.
    std::filesystem::path target;  ///< The bundle to replace.
};

/// The folder beside the bundle, on its file system, in which this user's update of it is staged.
[[nodiscard]] std::filesystem::path stagingFolderFor(const std::filesystem::path& target);

/// Nothing when there is no record, or none that makes sense.
[[nodiscard]] std::optional<StagedUpdate> readStagedUpdate(
    const std::filesystem::path& cacheFolder);

/// Durable on return.
[[nodiscard]] Status writeStagedUpdate(const std::filesystem::path& cacheFolder,
                                       const StagedUpdate& update);

/// Removes the record first and then the staging folder of the target, so that a kill leaves no
/// record of a tree that is partly gone. A bundle that was moved aside is put back before.
void discardStaging(const std::filesystem::path& cacheFolder, const std::filesystem::path& target);

/// Puts the staged bundle into the place of its target in one step and removes the old one.
///
/// Either the old or the new bundle stands whole at the target at every instant, but where the file
/// system can't exchange two folders: there the old one is moved aside first, and what a kill in
/// between leaves is repaired by `repairInstallation`. Blocks until the parent folder is flushed.
///
/// Returns the error of the step that failed; the old bundle is then still in place.
[[nodiscard]] Status installStagedUpdate(const std::filesystem::path& cacheFolder,
                                         const StagedUpdate& update);

/// Puts the bundle that an interrupted installation moved aside back into its place when nothing
/// stands there.
void repairInstallation(const std::filesystem::path& target);

}  // namespace teravolant::platform
