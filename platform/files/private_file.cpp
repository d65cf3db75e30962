#include "platform/files/private_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/core/file_error.h"
#include "platform/files/files.h"

namespace teravolant::platform {
namespace {

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

FileDescriptor openAt(const std::filesystem::path& path, int flags) {
    return FileDescriptor(::open(
        path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | flags, kOwnerOnly));
}

/// A file system without permissions keeps its own.
bool isPrivate(const FileDescriptor& file) {
    constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
    struct stat status {};
    if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != geteuid() ||
        status.st_nlink != 1) {
        return false;
    }
    return (status.st_mode & kOthers) == 0 ||
           (fchmod(file.get(), kOwnerOnly) == 0 && fstat(file.get(), &status) == 0 &&
            (status.st_mode & kOthers) != 0);
}

std::array<std::int64_t, 5> stateOf(const struct stat& status) {
    return {static_cast<std::int64_t>(status.st_dev), static_cast<std::int64_t>(status.st_ino),
            status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

}  // namespace

Result<PrivateFile> PrivateFile::open(const std::filesystem::path& path) {
    PrivateFile opened;
    opened._path = path;
    opened._file = openAt(path, O_NONBLOCK);
    if (!opened._file || !isPrivate(opened._file)) {
        if (auto error = removeTree(path)) {
            return error;
        }
        opened._file = openAt(path, O_CREAT | O_EXCL);
    }
    if (!opened._file) {
        return writeError(errno, path.native());
    }
    return opened;
}

Status PrivateFile::read(const std::function<Status(std::string_view)>& receive) const {
    constexpr std::size_t kPieceSize = 65536;
    return readOpenFile(_file, _path, kPieceSize, receive);
}

Status PrivateFile::append(std::string_view bytes) {
    const int failure = writeAll(_file.get(), bytes);
    return failure == 0 ? Status() : Status(writeError(failure, _path.native()));
}

Status PrivateFile::truncate() {
    return ftruncate(_file.get(), 0) == 0 ? Status() : Status(writeError(errno, _path.native()));
}

Status PrivateFile::recordState() {
    struct stat status {};
    if (fstat(_file.get(), &status) != 0) {
        return readError(errno, _path.native());
    }
    _recorded = stateOf(status);
    return std::nullopt;
}

bool PrivateFile::isUnchanged() const {
    struct stat status {};
    return lstat(_path.c_str(), &status) == 0 && stateOf(status) == _recorded;
}

}  // namespace teravolant::platform
