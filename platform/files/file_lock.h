#pragma once

#include <chrono>
#include <filesystem>
#include <optional>

#include "platform/core/file_descriptor.h"
#include "platform/core/result.h"

namespace teravolant::platform {

/// How long to wait for a lock that another process holds: longer than any writer needs, but a
/// suspended writer must not block a start for ever.
inline constexpr std::chrono::milliseconds kLockPatience = std::chrono::seconds(10);

/// Locks an open file exclusively. Returns 0, EWOULDBLOCK if another process held the lock for all
/// of `patience` or until `isCancelled` returned true, or another `errno` value.
[[nodiscard]] int lockWithin(int descriptor, std::chrono::milliseconds patience,
                             bool (*isCancelled)() = nullptr);

/// The error of `lockWithin` for the file at `path`: `NSFileLockingError` for EWOULDBLOCK.
[[nodiscard]] Status lockError(int errorNumber, const std::filesystem::path& path);

/// An exclusive lock between processes, held from creation to destruction.
///
/// The kernel releases the lock when the process ends, also when it is killed. Unless it is a
/// temporary one, the lock file stays, because other processes may wait for its lock.
class FileLock {
  public:
    /// Locks the file at `path`; creates it, readable by its owner only, if it is missing. Replaces
    /// a link, a file of another user and a file that other users can open: they could hold its
    /// lock, or make the caller create a file elsewhere. Blocks for at most `patience`, or until
    /// `isCancelled` returns true, and then fails with `NSFileLockingError`.
    static Result<FileLock> acquire(const std::filesystem::path& path,
                                    std::chrono::milliseconds patience = kLockPatience,
                                    bool (*isCancelled)() = nullptr);

    /// Like `acquire`, but returns nothing at once if another process holds the lock.
    static Result<std::optional<FileLock>> tryAcquire(const std::filesystem::path& path);

    /// Like `tryAcquire`, but removes the file when the lock is released: for a folder in which a
    /// user sees every file. All processes must lock the path with this operation.
    static Result<std::optional<FileLock>> tryAcquireTemporary(const std::filesystem::path& path);

    FileLock(FileLock&& other) noexcept = default;
    FileLock& operator=(FileLock&& other) noexcept;
    ~FileLock();

  private:
    explicit FileLock(FileDescriptor descriptor) : _descriptor(std::move(descriptor)) {}

    FileDescriptor _descriptor;
    std::filesystem::path _removedPath;  ///< Empty for a file that stays. Empty after a move.
};

}  // namespace teravolant::platform
