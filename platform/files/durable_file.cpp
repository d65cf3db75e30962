#include "platform/files/durable_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/text.h"
#include "platform/files/file_lock.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

/// Fills and flushes the temporary file; answers `errno` or 0.
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

/// Opens and locks the temporary file for a path. While it waits, the holder may move the file to
/// its place or remove it: what is locked then is no temporary file any more.
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

/// Answers `errno` or 0.
int moveOver(const std::string& temporary, const fs::path& path) {
    return rename(temporary.c_str(), path.c_str()) == 0 ? 0 : errno;
}

/// Answers `errno` or 0. Network file systems have no such way to rename, and others no hard links.
int moveToFreePlace(const std::string& temporary, const fs::path& path) {
    if (renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL || link(temporary.c_str(), path.c_str()) != 0) {
        return errno;
    }
    return unlink(temporary.c_str()) == 0 ? 0 : errno;
}

/// Writes and flushes a temporary file, has it moved to its place, and flushes the folder.
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
    if (failure != 0) {
        return writeError(failure, path.native());
    }
    return std::nullopt;
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
