#include "platform/files/durable_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/files/file_lock.h"

// How it works: a replacement goes through one temporary file beside the target, whose name is
// fixed. The writer opens it, creates it if necessary, and locks it with flock. A writer that
// waited for the lock checks that the path still names the locked file, because the previous holder
// renames or removes it, and starts again if not. Under the lock it truncates and fills the file,
// fsyncs it, renames it to the target and fsyncs the parent directory. The lock moves with the file
// and ends when the descriptor is closed. A process that is killed leaves at most the temporary
// file, whose lock is then free, and the next writer reuses it. A new file has no name until it is
// complete, so that no other process can open it.
namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kEveryPermission = 0777;

fs::path folderOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

/// Replaces the contents of an open file and fsyncs it. Returns 0 or an `errno` value.
int writeDurably(int descriptor, std::string_view bytes, unsigned mode) {
    if (ftruncate(descriptor, 0) != 0 || fchmod(descriptor, static_cast<mode_t>(mode)) != 0) {
        return errno;
    }
    if (const int failure = writeAll(descriptor, bytes)) {
        return failure;
    }
    return fsync(descriptor) == 0 ? 0 : errno;
}

bool isNamedBy(const std::string& path, int descriptor) {
    struct stat held {};
    struct stat named {};
    return fstat(descriptor, &held) == 0 && lstat(path.c_str(), &named) == 0 &&
           held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

/// Opens and locks the temporary file for `path`.
Result<FileDescriptor> openTemporaryFor(const fs::path& path) {
    const std::string temporary = temporaryPathFor(path);
    while (true) {
        FileDescriptor file(open(temporary.c_str(),
                                 O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                                 kOwnerOnly));
        if (const int failure = file ? lockWithin(file.get(), kLockPatience) : errno) {
            return lockError(failure, path);
        }
        if (isNamedBy(temporary, file.get())) {
            return file;
        }
    }
}

/// Opens a new file that has no name yet, or one at `path` if the file system supports no files
/// without a name.
FileDescriptor openNewFile(const fs::path& path, bool& isNamed) {
    isNamed = false;
    FileDescriptor file(open(folderOf(path).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, kOwnerOnly));
    if (!file && errno == EOPNOTSUPP) {
        file = FileDescriptor(
            open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly));
        isNamed = static_cast<bool>(file);
    }
    return file;
}

/// Whether the file permits no more than `mode`. A file system without permissions has its own.
/// Sets `errno`.
bool permitsAtMost(int descriptor, unsigned mode) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) {
        return false;
    }
    errno = EPERM;
    return (status.st_mode & kEveryPermission & ~mode) == 0;
}

/// Gives a file without a name the name `path`. Fails if an item has it. Returns 0 or an `errno`
/// value.
int giveName(int descriptor, const fs::path& path) {
    const std::string unnamed = "/proc/self/fd/" + std::to_string(descriptor);
    return linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0
               ? 0
               : errno;
}

}  // namespace

int flushFolderOf(const fs::path& path) {
    const FileDescriptor descriptor(
        open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return descriptor && fsync(descriptor.get()) == 0 ? 0 : errno;
}

fs::path temporaryPathFor(const fs::path& path) {
    return path.parent_path() / ("." + path.filename().string() + ".teravolant-new");
}

Status replaceFileDurably(const fs::path& path, std::string_view bytes, unsigned mode) {
    const std::string temporary = temporaryPathFor(path);
    const auto file = openTemporaryFor(path);
    if (!file) {
        return file.error();
    }
    int failure = writeDurably(file->get(), bytes, mode);
    if (failure == 0 && rename(temporary.c_str(), path.c_str()) != 0) {
        failure = errno;
    }
    if (failure != 0) {
        unlink(temporary.c_str());
        return writeError(failure, path.native());
    }
    failure = flushFolderOf(path);
    return failure == 0 ? Status() : writeError(failure, path.native());
}

Status createFileDurably(const fs::path& path, std::string_view bytes, unsigned mode) {
    bool isNamed = false;
    const FileDescriptor file = openNewFile(path, isNamed);
    if (!file) {
        return writeError(errno, path.native());
    }
    int failure = permitsAtMost(file.get(), mode) ? 0 : errno;
    if (failure == 0) {
        failure = writeDurably(file.get(), bytes, mode);
    }
    if (failure == 0 && !isNamed) {
        failure = giveName(file.get(), path);
        isNamed = failure == 0;
    }
    if (failure == 0) {
        failure = flushFolderOf(path);
    }
    if (failure != 0 && isNamed) {
        unlink(path.c_str());
    }
    return failure == 0 ? Status() : writeError(failure, path.native());
}

}  // namespace teravolant::platform
