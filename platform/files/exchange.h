#pragma once

#include <filesystem>

// The replacement of a directory tree. Both operations may be called from any thread and return 0
// or an `errno` value.
namespace teravolant::platform {

/// Atomically exchanges two items of one file system; follows no link. Returns ENOTSUP if the file
/// system or the kernel can't exchange items.
[[nodiscard]] int exchangeItems(const std::filesystem::path& first,
                                const std::filesystem::path& second);

/// Flushes the file system of `folder`: blocks until everything written to it before the call is on
/// the disk.
[[nodiscard]] int flushFileSystemOf(const std::filesystem::path& folder);

}  // namespace teravolant::platform
