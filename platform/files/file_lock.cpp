#include "platform/files/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

/// Opens or creates the file, but does not follow a link.
FileDescriptor openOrCreate(const fs::path& path, int creation = O_CREAT) {
    const int flags = creation | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW;
    // Network file systems grant an exclusive lock only on a file that is open for writing.
    FileDescriptor file(open(path.c_str(), O_RDWR | flags, kOwnerOnly));
    if (!file && (errno == EACCES || errno == EPERM || errno == EROFS)) {
        file = FileDescriptor(open(path.c_str(), O_RDONLY | flags, kOwnerOnly));
    }
    return file;
}

/// Whether another user may have opened the file and hold its lock. Tightens its permissions. A
/// file system without permissions keeps its own: such a file counts as the user's.
bool isOpenToOthers(const FileDescriptor& file) {
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        return false;
    }
    return status.st_uid != geteuid() ||
           ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0 && fchmod(file.get(), kOwnerOnly) == 0 &&
            fstat(file.get(), &status) == 0 && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0);
}

FileDescriptor openLockFile(const fs::path& path) {
    FileDescriptor file = openOrCreate(path);
    const bool isReplaced = file ? isOpenToOthers(file) : errno == ELOOP;
    if (isReplaced) {
        // Another user's file is never locked: that user could hold its lock for ever.
        file.reset();
        if (unlink(path.c_str()) == 0) {
            file = openOrCreate(path, O_CREAT | O_EXCL);
        }
    }
    return file;
}

/// Whether the path still leads to the open file.
bool isAt(const FileDescriptor& file, const fs::path& path) {
    struct stat opened {};
    struct stat present {};
    return fstat(file.get(), &opened) == 0 && lstat(path.c_str(), &present) == 0 &&
           opened.st_dev == present.st_dev && opened.st_ino == present.st_ino;
}

}  // namespace

int lockWithin(int descriptor, std::chrono::milliseconds patience, bool (*isCancelled)()) {
    constexpr std::chrono::milliseconds kPause(5);
    const auto end = std::chrono::steady_clock::now() + patience;
    while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EINTR && errno != EWOULDBLOCK) {
            return errno;
        }
        if (std::chrono::steady_clock::now() >= end || (isCancelled != nullptr && isCancelled())) {
            return EWOULDBLOCK;
        }
        std::this_thread::sleep_for(kPause);
    }
    return 0;
}

Status lockError(int errorNumber, const fs::path& path) {
    if (errorNumber != EWOULDBLOCK) {
        return writeError(errorNumber, path.native());
    }
    return Error{.domain = std::string(NSCocoaErrorDomain),
                 .code = NSFileLockingError,
                 .localizedDescription = quoted(path.native()) +
                                         " could not be locked: another process holds its lock."};
}

Result<FileLock> FileLock::acquire(const fs::path& path, std::chrono::milliseconds patience,
                                   bool (*isCancelled)()) {
    FileDescriptor file = openLockFile(path);
    if (const int failure = file ? lockWithin(file.get(), patience, isCancelled) : errno) {
        return lockError(failure, path);
    }
    return FileLock(std::move(file));
}

Result<std::optional<FileLock>> FileLock::tryAcquire(const fs::path& path) {
    FileDescriptor file = openLockFile(path);
    const int failure = file ? lockWithin(file.get(), std::chrono::milliseconds(0)) : errno;
    if (failure == EWOULDBLOCK) {
        return std::optional<FileLock>();
    }
    if (failure != 0) {
        return lockError(failure, path);
    }
    return std::optional(FileLock(std::move(file)));
}

Result<std::optional<FileLock>> FileLock::tryAcquireTemporary(const fs::path& path) {
    while (true) {
        auto lock = tryAcquire(path);
        // The process that held the lock may have removed the file since it was opened.
        if (!lock || !*lock || isAt((*lock)->_descriptor, path)) {
            if (lock && *lock) {
                (*lock)->_removedPath = path;
            }
            return lock;
        }
    }
}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
    std::swap(_descriptor, other._descriptor);
    _removedPath.swap(other._removedPath);
    return *this;
}

FileLock::~FileLock() {
    // Removed while the lock is held: another process then locks a new file.
    if (_descriptor && !_removedPath.empty()) {
        unlink(_removedPath.c_str());
    }
}

}  // namespace teravolant::platform
