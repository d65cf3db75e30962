#pragma once

#include <filesystem>

#include "platform/core/result.h"

// The folder of a confined program. A program that root starts runs as an unprivileged user (see
// unprivileged_user.h), which needs a folder of its own.
namespace teravolant::platform {

/// For root, creates a folder in `folder` that belongs to the unprivileged user, for the tree of
/// the program that is started next, and returns its path. For another user, returns `folder`.
///
/// For root, `folder` must be closed to all other users, so that no other process of the
/// unprivileged user reaches the tree.
[[nodiscard]] Result<std::filesystem::path> lendFolder(const std::filesystem::path& folder);

/// Makes root the owner of everything that the program has created in `lent`, a subfolder of
/// `folder`, moves it to `folder` and removes `lent`. Call it after the program has ended. Fails if
/// a file has a hard link elsewhere, through which another user could change it.
[[nodiscard]] Status takeFolderBack(const std::filesystem::path& lent,
                                    const std::filesystem::path& folder);

}  // namespace teravolant::platform
