#pragma once

#include <filesystem>
#include <string>

#include "platform/core/result.h"

namespace teravolant {

/// Prepares a process of root to update the bundle; does nothing for another user. Call it before
/// other threads are started and before a file is used.
///
/// From then on, the process uses root's home of the password database, whatever home or temporary
/// folder the environment names, and creates files that only root can change. Fails if another user
/// can change the bundle, a folder above it, or root's preferences and cache.
[[nodiscard]] platform::Status prepareSuperuser(const std::filesystem::path& bundle);

/// Returns a blank and a sentence that says who can replace the bundle, which this user can't
/// replace. Empty if that does not depend on the user.
[[nodiscard]] std::string whoCanReplace(const std::filesystem::path& bundle,
                                        const std::filesystem::path& program);

}  // namespace teravolant
