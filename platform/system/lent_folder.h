#pragma once

#include <filesystem>

#include "platform/core/result.h"

// The folder of a confined program. A program of root runs as an unprivileged user (see
// unprivileged_user.h), which needs a folder of its own.
namespace teravolant::platform {

/// Returns the folder in which the program of root that is started next may create a tree, instead
/// of `folder`: a new one in `folder`, of the unprivileged user. For another user than root,
/// returns `folder`.
///
/// For root, `folder` must be closed to all other users, so that no other process of the
/// unprivileged user reaches the tree.
[[nodiscard]] Result<std::filesystem::path> lendFolder(const std::filesystem::path& folder);

/// Makes root the owner of everything that the program has created in `lent`, and moves it to
/// `folder`. Does nothing if both are the same. Call it after the program has ended. Fails if a
/// file has a hard link elsewhere, through which another user could change it.
[[nodiscard]] Status takeFolderBack(const std::filesystem::path& lent,
                                    const std::filesystem::path& folder);

}  // namespace teravolant::platform
