#pragma once

#include <filesystem>

#include "platform/core/result.h"

// The exchange of the installed bundle with another one in its staging folder.
namespace teravolant::platform {

/// Atomically exchanges the bundle at `other`, in the staging folder of `target`, with the bundle
/// at `target`, and flushes the parent folder of `target`. Blocks.
///
/// At every instant one of the two complete bundles is at the target. The exception is a file
/// system that can't exchange two folders: there the installed bundle is moved aside first, and
/// `repairInstallation` repairs the result of a kill in between.
///
/// Returns the error of the step that failed; both bundles are then where they were.
[[nodiscard]] Status exchangeBundles(const std::filesystem::path& other,
                                     const std::filesystem::path& target);

/// Completes or undoes an exchange that a kill interrupted on a file system that can't exchange two
/// folders: moves the bundle that was moved aside back to `target` if nothing is there, else to
/// `other` if nothing is there.
void repairInstallation(const std::filesystem::path& target,
                        const std::filesystem::path& other = {});

}  // namespace teravolant::platform
