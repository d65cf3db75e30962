#pragma once

#include <filesystem>
#include <string>

#include "platform/core/result.h"

// Directories that only the current user can change. All operations may be called from any thread.
namespace teravolant::platform {

/// Returns the effective user id in decimal digits, for names of files and directories of one user.
[[nodiscard]] std::string userIdText();

/// Creates a directory of mode 0700. Returns 0 or an `errno` value: EEXIST if anything exists at
/// `path`.
[[nodiscard]] int createPrivateDirectory(const std::filesystem::path& path);

/// Makes `path` a directory of mode 0700 of the current user, and creates missing parents. Empties
/// a directory that its group or others could open: they may have prepared its contents. Fails for
/// a link and for a directory of another user.
[[nodiscard]] Status preparePrivateDirectory(const std::filesystem::path& path);

/// Whether `path` is a directory, not a link to one, that belongs to the current user and that
/// neither its group nor others may write to.
[[nodiscard]] bool isPrivateDirectory(const std::filesystem::path& path);

/// Fails if a directory of `relative`, which stands below `base`, exists and is not private to the
/// current user. `base` itself is not checked. Creates nothing.
[[nodiscard]] Status checkPrivateDirectories(const std::filesystem::path& base,
                                             const std::filesystem::path& relative);

/// Whether the current user can move the directory `path` away and another one to its place. The
/// error names what prevents it: the directory, the one around it, or their file system.
[[nodiscard]] Status checkReplaceable(const std::filesystem::path& path);

}  // namespace teravolant::platform
