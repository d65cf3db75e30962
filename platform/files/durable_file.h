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

/// Durably creates a file with exactly the permission bits `mode`, without regard to the umask and
/// the folder's default access control list. Never replaces an existing item: fails with
/// `NSFileWriteFileExistsError`.
///
/// No other user can open the file before it is complete, nor later, unless `mode` permits it. It
/// has no name until then; on a file system without support for that, it has its name from the
/// beginning. Fails on a file system without permission bits that grants more
/// than `mode`. A failure leaves no file.
Status createFileDurably(const std::filesystem::path& path, std::string_view bytes, unsigned mode);

/// Fsyncs the parent directory of `path`. Returns 0 or an `errno` value.
[[nodiscard]] int flushFolderOf(const std::filesystem::path& path);

}  // namespace teravolant::platform
