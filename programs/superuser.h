#pragma once

#include <filesystem>
#include <string>

#include "platform/core/result.h"

namespace teravolant {

/// Prepares a process of root to update the bundle; does nothing for another user. Call it before
/// other threads are started and before a file is used.
///
/// Removes the variables that name a home or a temporary folder, so that the process uses root's
/// home of the password database, and sets a umask with which only root can change new files. Fails
/// if another user can change the bundle, a folder above it, or root's preferences and cache.
[[nodiscard]] platform::Status prepareSuperuser(const std::filesystem::path& bundle);

/// Returns a space and a sentence that says who can replace the bundle, for a user who can't.
/// `program` is the path of `update`. Empty if the obstacle does not depend on the user.
[[nodiscard]] std::string whoCanReplace(const std::filesystem::path& bundle,
                                        const std::filesystem::path& program);

}  // namespace teravolant
