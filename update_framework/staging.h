#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/core/result.h"

namespace teravolant::platform {

/// A complete, flushed bundle that is ready to be installed, as recorded in the cache folder. It is
/// in the staging folder of the bundle that it replaces.
struct StagedUpdate {
    std::string version;
    std::string treeDigest;        ///< The signed `digestOfTree` of the bundle.
    std::filesystem::path staged;  ///< The new bundle.
    std::filesystem::path target;  ///< The bundle to replace.
};

/// Returns the folder beside the bundle, on the same file system, where this user's update of the
/// bundle is staged.
[[nodiscard]] std::filesystem::path stagingFolderFor(const std::filesystem::path& target);

/// Returns nothing if the record is missing, unreadable or implausible.
[[nodiscard]] std::optional<StagedUpdate> readStagedUpdate(
    const std::filesystem::path& cacheFolder);

/// Atomically and durably replaces the record.
[[nodiscard]] Status writeStagedUpdate(const std::filesystem::path& cacheFolder,
                                       const StagedUpdate& update);

/// Repairs an interrupted installation, then removes the record and the staging folder of `target`,
/// in this order: a kill leaves no record of an incomplete tree. Failures are ignored: the next
/// cycle tries again.
void discardStaging(const std::filesystem::path& cacheFolder, const std::filesystem::path& target);

/// Repairs an interrupted installation, then removes everything in the staging folder of `target`
/// that does not belong to the recorded update, or the folder if no update of `target` is recorded.
/// Failures are ignored: the next cycle tries again.
void removeUnrecordedStaging(const std::filesystem::path& cacheFolder,
                             const std::filesystem::path& target);

/// Atomically exchanges the staged bundle with its target and removes the old bundle.
///
/// At every instant the complete old or the complete new bundle is at the target. The exception is
/// a file system that can't exchange two folders: there the old bundle is moved aside first, and
/// `repairInstallation` repairs the result of a kill in between. Blocks until the parent folder is
/// flushed.
///
/// Returns the error of the step that failed; the old bundle is then still at the target.
[[nodiscard]] Status installStagedUpdate(const std::filesystem::path& cacheFolder,
                                         const StagedUpdate& update);

/// Moves the bundle that an interrupted installation moved aside back to `target` if nothing is
/// there.
void repairInstallation(const std::filesystem::path& target);

}  // namespace teravolant::platform
