#include "platform/files/files.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <system_error>

#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

int flagFor(Links links) { return links == Links::Refuse ? O_NOFOLLOW : 0; }

/// Copies the remaining contents of one file to another. Returns 0 or an `errno` value.
int copyContents(int from, int to) {
    constexpr std::size_t kMost = 1U << 30U;
    while (true) {
        const ssize_t copied = sendfile(to, from, nullptr, kMost);
        if (copied == 0) {
            return 0;
        }
        if (copied < 0 && errno != EINTR) {
            return errno;
        }
    }
}

}  // namespace

Result<FileAttributes> attributesOfItem(const fs::path& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return readError(errno, path.native());
    }
    return FileAttributes{.fileModificationDate = std::chrono::sys_time<std::chrono::nanoseconds>(
                              std::chrono::seconds(status.st_mtim.tv_sec) +
                              std::chrono::nanoseconds(status.st_mtim.tv_nsec)),
                          .fileSize = static_cast<std::uint64_t>(status.st_size)};
}

bool fileExists(const fs::path& path) {
    std::error_code unknown;
    return fs::exists(path, unknown);
}

Status createDirectory(const fs::path& path) {
    std::error_code failure;
    fs::create_directories(path, failure);
    if (failure) {
        return errorFromErrno(failure.value(), FileAccess::Write,
                              "The folder " + quoted(path.native()) + " could not be created");
    }
    return std::nullopt;
}

Status removeItem(const fs::path& path) {
    std::error_code failure;
    const auto removed = fs::remove_all(path, failure);
    if (failure || removed == 0) {
        return errorFromErrno(failure ? failure.value() : ENOENT, FileAccess::Write,
                              quoted(path.native()) + " could not be removed");
    }
    return std::nullopt;
}

Status removeTree(const fs::path& tree) {
    std::error_code ignored;
    const fs::file_status status = fs::symlink_status(tree, ignored);
    if (!fs::exists(status)) {
        return std::nullopt;
    }
    if (!fs::is_directory(status)) {
        return removeItem(tree);
    }
    fs::permissions(tree, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (fs::recursive_directory_iterator walk(tree, ignored), end; !ignored && walk != end;
         walk.increment(ignored)) {
        std::error_code unknown;
        if (walk->is_directory(unknown) && !walk->is_symlink(unknown)) {
            fs::permissions(walk->path(), fs::perms::owner_all, fs::perm_options::add, unknown);
        }
    }
    return removeItem(tree);
}

Status copyItem(const fs::path& source, const fs::path& target) {
    const FileDescriptor from(open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    struct stat status {};
    if (!from || fstat(from.get(), &status) != 0) {
        return readError(errno, source.native());
    }
    FileDescriptor to(open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!to) {
        return writeError(errno, target.native());
    }
    int failure = copyContents(from.get(), to.get());
    if (failure == 0 && fchmod(to.get(), status.st_mode & 0777U) != 0) {
        failure = errno;
    }
    // The modification time is set last, after fsync: a partial copy, even one left by a power
    // failure, never has the time of the source.
    if (failure == 0 && fsync(to.get()) != 0) {
        failure = errno;
    }
    const std::array<timespec, 2> times = {status.st_atim, status.st_mtim};
    if (failure == 0 && futimens(to.get(), times.data()) != 0) {
        failure = errno;
    }
    if (failure != 0) {
        unlink(target.c_str());
        return writeError(failure, target.native());
    }
    return std::nullopt;
}

Status moveItem(const fs::path& source, const fs::path& target) {
    if (rename(source.c_str(), target.c_str()) != 0) {
        return errorFromErrno(
            errno, FileAccess::Write,
            quoted(source.native()) + " could not be moved to " + quoted(target.native()));
    }
    return std::nullopt;
}

Status appendToFile(const fs::path& path, std::string_view bytes, Links links) {
    const FileDescriptor file(open(
        path.c_str(),
        O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | flagFor(links), 0666));
    const int failure = file ? writeAll(file.get(), bytes) : errno;
    return failure == 0 ? Status() : writeError(failure, path.native());
}

Status readInPieces(const fs::path& path, std::size_t pieceSize,
                    const std::function<Status(std::string_view)>& receive, Links links) {
    if (path.native().find('\0') != fs::path::string_type::npos) {
        return readError(EINVAL, path.native());
    }
    const FileDescriptor file(
        open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | flagFor(links)));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        return readError(errno, path.native());
    }
    if (!S_ISREG(status.st_mode)) {
        return readError(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, path.native());
    }
    return readOpenFile(file, path, pieceSize, receive);
}

Status readOpenFile(const FileDescriptor& file, const fs::path& path, std::size_t pieceSize,
                    const std::function<Status(std::string_view)>& receive) {
    const auto buffer = std::make_unique_for_overwrite<char[]>(pieceSize);
    off_t offset = 0;
    while (true) {
        const ssize_t count = pread(file.get(), buffer.get(), pieceSize, offset);
        if (count == 0) {
            return std::nullopt;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return readError(errno, path.native());
        }
        offset += count;
        if (auto error = receive({buffer.get(), static_cast<std::size_t>(count)})) {
            return error;
        }
    }
}

Result<std::string> contentsOfFile(const fs::path& path) {
    constexpr std::size_t kPieceSize = 65536;
    std::string contents;
    if (auto error = readInPieces(path, kPieceSize, [&contents](std::string_view piece) {
            contents += piece;
            return Status();
        })) {
        return error;
    }
    return contents;
}

}  // namespace teravolant::platform
