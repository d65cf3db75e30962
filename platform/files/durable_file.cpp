#include "platform/files/durable_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/files/file_lock.h"

// How it works: a write goes through one temporary file beside the target, whose name is fixed. The
// writer opens it, creates it if necessary, and locks it with flock. A writer that waited for the
// lock checks that the path still names the locked file, because the previous holder renames or
// removes it, and starts again if not. Under the lock it truncates and fills the file, fsyncs it,
// renames it to the target and fsyncs the parent directory. The lock moves with the file and ends
// when the descriptor is closed. A process that is killed leaves at most the temporary file, whose
// lock is then free, and the next writer reuses it.
namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

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
                                 O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
        if (const int failure = file ? lockWithin(file.get(), kLockPatience) : errno) {
            return lockError(failure, path);
        }
        if (isNamedBy(temporary, file.get())) {
            return file;
        }
    }
}

/// Returns 0 or an `errno` value.
int moveOver(const std::string& temporary, const fs::path& path) {
    return rename(temporary.c_str(), path.c_str()) == 0 ? 0 : errno;
}

/// Returns 0 or an `errno` value. Falls back to a hard link: network file systems do not support
/// RENAME_NOREPLACE, and some other file systems do not support hard links.
int moveToFreePlace(const std::string& temporary, const fs::path& path) {
    if (renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL || link(temporary.c_str(), path.c_str()) != 0) {
        return errno;
    }
    return unlink(temporary.c_str()) == 0 ? 0 : errno;
}

/// Writes and fsyncs the temporary file, moves it to `path` and fsyncs the parent directory.
Status placeDurably(const fs::path& path, std::string_view bytes, unsigned mode,
                    int (*move)(const std::string& temporary, const fs::path& path)) {
    const std::string temporary = temporaryPathFor(path);
    const auto file = openTemporaryFor(path);
    if (!file) {
        return file.error();
    }
    int failure = writeDurably(file->get(), bytes, mode);
    if (failure == 0) {
        failure = move(temporary, path);
    }
    if (failure != 0) {
        unlink(temporary.c_str());
        return writeError(failure, path.native());
    }
    failure = flushFolderOf(path);
    return failure == 0 ? Status() : writeError(failure, path.native());
}

}  // namespace

int flushFolderOf(const fs::path& path) {
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    const FileDescriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return descriptor && fsync(descriptor.get()) == 0 ? 0 : errno;
}

fs::path temporaryPathFor(const fs::path& path) {
    return path.parent_path() / ("." + path.filename().string() + ".teravolant-new");
}

Status replaceFileDurably(const fs::path& path, std::string_view bytes, unsigned mode) {
    return placeDurably(path, bytes, mode, moveOver);
}

Status createFileDurably(const fs::path& path, std::string_view bytes, unsigned mode) {
    return placeDurably(path, bytes, mode, moveToFreePlace);
}

}  // namespace teravolant::platform
