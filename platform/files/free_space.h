#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Bytes that will be written to a directory.
struct NeededSpace {
    std::filesystem::path folder;
    std::uint64_t bytes = 0;
};

/// Fails with `NSFileWriteOutOfSpaceError` if a file system has less free space for the current
/// user than the directories on it need together. Ignores a file system that does not report its
/// space.
[[nodiscard]] Status checkFreeSpace(const std::vector<NeededSpace>& needs);

/// Returns the error of a full file system. It names the directory, the space needed and the space
/// free.
[[nodiscard]] Status outOfSpaceError(const std::filesystem::path& folder, std::uint64_t needed);

}  // namespace teravolant::platform
