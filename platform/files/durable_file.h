#pragma once

#include <filesystem>
#include <string_view>

#include "platform/core/result.h"

// Durable writes of small files. All operations may be called from any thread and block until the
// data is on the disk.
namespace teravolant::platform {

/// Returns the path of the temporary file beside `path` that receives its new contents. The name is
/// hidden and fixed, so that killed processes leave at most one such file.
[[nodiscard]] std::filesystem::path temporaryPathFor(const std::filesystem::path& path);

/// Atomically and durably replaces the contents of `path`: writes the temporary file, fsyncs it,
/// renames it over `path` and fsyncs the parent directory. Sets exactly the permission bits `mode`.
///
/// Reuses the temporary file that a killed process left. Callers with the same path wait for each
/// other on a lock of that file; fails with `NSFileLockingError` if the lock is not acquired within
/// `kLockPatience`.
Status replaceFileDurably(const std::filesystem::path& path, std::string_view bytes, unsigned mode);

/// Like `replaceFileDurably`, but never replaces an existing item: fails with
/// `NSFileWriteFileExistsError`.
Status createFileDurably(const std::filesystem::path& path, std::string_view bytes, unsigned mode);

/// Fsyncs the parent directory of `path`. Returns 0 or an `errno` value.
[[nodiscard]] int flushFolderOf(const std::filesystem::path& path);

}  // namespace teravolant::platform
