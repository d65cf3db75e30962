#include "platform/files.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

std::string quoted(const fs::path& path) { return "“" + path.string() + "”"; }

Error readError(int errorNumber, const fs::path& path) {
    return errorFromErrno(errorNumber, FileAccess::Read, quoted(path) + " could not be read");
}

Error writeError(int errorNumber, const fs::path& path) {
    return errorFromErrno(errorNumber, FileAccess::Write, quoted(path) + " could not be written");
}

std::optional<fs::path> absolutePathFromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || value[0] != '/') {
        return std::nullopt;
    }
    return fs::path(value);
}

fs::path homeFromPasswordDatabase() {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
        found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/') {
        return found->pw_dir;
    }
    return "/nonexistent";
}

fs::path baseDirectory(const char* variable, const char* belowHome) {
    if (auto path = absolutePathFromEnvironment(variable)) {
        return *path;
    }
    return homeDirectoryForCurrentUser() / belowHome;
}

/// Copies what is left of one file to another; answers `errno` or 0.
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

UniqueFd openLockFile(const fs::path& path) {
    constexpr int kFlags = O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    // Network file systems lock exclusively only what is open for writing.
    UniqueFd file(open(path.c_str(), O_RDWR | kFlags, 0600));
    if (!file && (errno == EACCES || errno == EPERM || errno == EROFS)) {
        file = UniqueFd(open(path.c_str(), O_RDONLY | kFlags, 0600));
    }
    return file;
}

/// Answers 0, EWOULDBLOCK when somebody else holds the lock all the while, or another `errno`.
int lockWithin(int descriptor, std::chrono::milliseconds patience) {
    constexpr std::chrono::milliseconds kPause(5);
    const auto end = std::chrono::steady_clock::now() + patience;
    while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EINTR && errno != EWOULDBLOCK) {
            return errno;
        }
        if (std::chrono::steady_clock::now() >= end) {
            return EWOULDBLOCK;
        }
        std::this_thread::sleep_for(kPause);
    }
    return 0;
}

Error lockError(int errorNumber, const fs::path& path) {
    if (errorNumber != EWOULDBLOCK) {
        return writeError(errorNumber, path);
    }
    return Error{.domain = std::string(NSCocoaErrorDomain),
                 .code = NSFileLockingError,
                 .localizedDescription =
                     quoted(path) + " could not be locked: another process holds its lock."};
}

bool isNamedBy(const std::string& path, int descriptor) {
    struct stat held {};
    struct stat named {};
    return fstat(descriptor, &held) == 0 && lstat(path.c_str(), &named) == 0 &&
           held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

/// Opens and locks the temporary file for a path. While it waits, the holder may move the file to
/// its place or remove it: what is locked then is no temporary file any more.
Result<UniqueFd> openTemporaryFor(const fs::path& path) {
    const std::string temporary = temporaryPathFor(path);
    while (true) {
        UniqueFd file(open(temporary.c_str(),
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
std::optional<Error> placeDurably(const fs::path& path, std::string_view bytes, unsigned mode,
                                  int (*move)(const std::string& temporary, const fs::path& path)) {
    const std::string temporary = temporaryPathFor(path);
    const auto file = openTemporaryFor(path);
    if (!file) {
        return file.error();
    }
    int failure = writeDurably(file.value().get(), bytes, mode);
    if (failure == 0) {
        failure = move(temporary, path);
    }
    if (failure != 0) {
        unlink(temporary.c_str());
        return writeError(failure, path);
    }
    failure = flushFolderOf(path);
    if (failure != 0) {
        return writeError(failure, path);
    }
    return std::nullopt;
}

}  // namespace

fs::path homeDirectoryForCurrentUser() {
    fs::path home = absolutePathFromEnvironment("HOME").value_or("");
    if (home.empty()) {
        home = homeFromPasswordDatabase();
    }
    std::error_code unresolved;
    fs::path resolved = fs::canonical(home, unresolved);
    return unresolved ? home : resolved;
}

fs::path applicationSupportDirectory() { return baseDirectory("XDG_DATA_HOME", ".local/share"); }

fs::path configurationDirectory() { return baseDirectory("XDG_CONFIG_HOME", ".config"); }

fs::path cachesDirectory() { return baseDirectory("XDG_CACHE_HOME", ".cache"); }

fs::path machineLogDirectory() { return "/var/log"; }

Result<FileAttributes> attributesOfItem(const fs::path& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return readError(errno, path);
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

std::optional<Error> createDirectory(const fs::path& path) {
    std::error_code failure;
    fs::create_directories(path, failure);
    if (failure) {
        return errorFromErrno(failure.value(), FileAccess::Write,
                              "The folder " + quoted(path) + " could not be created");
    }
    return std::nullopt;
}

std::optional<Error> removeItem(const fs::path& path) {
    std::error_code failure;
    const auto removed = fs::remove_all(path, failure);
    if (failure || removed == 0) {
        return errorFromErrno(failure ? failure.value() : ENOENT, FileAccess::Write,
                              quoted(path) + " could not be removed");
    }
    return std::nullopt;
}

std::optional<Error> removeTree(const fs::path& tree) {
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

std::optional<Error> copyItem(const fs::path& source, const fs::path& target) {
    const UniqueFd from(open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    struct stat status {};
    if (!from || fstat(from.get(), &status) != 0) {
        return readError(errno, source);
    }
    UniqueFd to(open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!to) {
        return writeError(errno, target);
    }
    int failure = copyContents(from.get(), to.get());
    if (failure == 0 && fchmod(to.get(), status.st_mode & 0777U) != 0) {
        failure = errno;
    }
    // The time comes last, and behind a flush: a copy that was cut short, even by a power failure,
    // never looks as current as a whole one.
    if (failure == 0 && fsync(to.get()) != 0) {
        failure = errno;
    }
    const std::array<timespec, 2> times = {status.st_atim, status.st_mtim};
    if (failure == 0 && futimens(to.get(), times.data()) != 0) {
        failure = errno;
    }
    if (failure != 0) {
        unlink(target.c_str());
        return writeError(failure, target);
    }
    return std::nullopt;
}

std::optional<Error> moveItem(const fs::path& source, const fs::path& target) {
    if (rename(source.c_str(), target.c_str()) != 0) {
        return errorFromErrno(errno, FileAccess::Write,
                              quoted(source) + " could not be moved to " + quoted(target));
    }
    return std::nullopt;
}

std::optional<Error> appendToFile(const fs::path& path, std::string_view bytes) {
    const UniqueFd file(open(
        path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666));
    const int failure = file ? writeAll(file.get(), bytes) : errno;
    if (failure != 0) {
        return writeError(failure, path);
    }
    return std::nullopt;
}

std::optional<Error> readInPieces(
    const fs::path& path, std::size_t pieceSize,
    const std::function<std::optional<Error>(std::string_view)>& receive, Links links) {
    if (path.native().find('\0') != fs::path::string_type::npos) {
        return readError(EINVAL, path);
    }
    const int noLink = links == Links::Refuse ? O_NOFOLLOW : 0;
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | noLink));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        return readError(errno, path);
    }
    if (!S_ISREG(status.st_mode)) {
        return readError(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, path);
    }
    const auto buffer = std::make_unique_for_overwrite<char[]>(pieceSize);
    while (true) {
        const ssize_t count = read(file.get(), buffer.get(), pieceSize);
        if (count == 0) {
            return std::nullopt;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return readError(errno, path);
        }
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
            return std::optional<Error>();
        })) {
        return *std::move(error);
    }
    return contents;
}

int flushFolderOf(const fs::path& path) {
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    const UniqueFd descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return descriptor && fsync(descriptor.get()) == 0 ? 0 : errno;
}

fs::path temporaryPathFor(const fs::path& path) {
    return path.parent_path() / ("." + path.filename().string() + ".teravolant-new");
}

std::optional<Error> replaceFileDurably(const fs::path& path, std::string_view bytes,
                                        unsigned mode) {
    return placeDurably(path, bytes, mode, moveOver);
}

std::optional<Error> createFileDurably(const fs::path& path, std::string_view bytes,
                                       unsigned mode) {
    return placeDurably(path, bytes, mode, moveToFreePlace);
}

Result<FileLock> FileLock::acquire(const fs::path& path, std::chrono::milliseconds patience) {
    UniqueFd file = openLockFile(path);
    if (const int failure = file ? lockWithin(file.get(), patience) : errno) {
        return lockError(failure, path);
    }
    return FileLock(std::move(file));
}

Result<std::optional<FileLock>> FileLock::tryAcquire(const fs::path& path) {
    return tryLock(openLockFile(path), path);
}

Result<std::optional<FileLock>> FileLock::tryAcquireFolder(const fs::path& path) {
    return tryLock(UniqueFd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), path);
}

Result<std::optional<FileLock>> FileLock::tryLock(UniqueFd file, const fs::path& path) {
    const int failure = file ? lockWithin(file.get(), std::chrono::milliseconds(0)) : errno;
    if (failure == EWOULDBLOCK) {
        return std::optional<FileLock>();
    }
    if (failure != 0) {
        return lockError(failure, path);
    }
    return std::optional(FileLock(std::move(file)));
}

}  // namespace teravolant::platform
