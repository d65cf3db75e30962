#pragma once

#include <filesystem>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Fails with `NSFileWriteNoPermissionError` if another user than root can change what an absolute
/// path leads to: the item, a folder above it, or a link on the way. The description names the
/// first such item and who can change it.
///
/// Trusts root, the current user, and the owner of "/", which is root under another id in a user
/// namespace. Trusts root's group and the user's own group if they have no other members. Checks
/// the existing part of a path whose end is missing. Call it from one thread at a time: it reads
/// the user database.
Status checkTrustedPath(const std::filesystem::path& path);

/// The same for an existing folder, everything in it, and the targets of the links in it. Also
/// fails if another user can create an item in the parent folder. `folder` is absolute.
Status checkTrustedTree(const std::filesystem::path& folder);

}  // namespace teravolant::platform
