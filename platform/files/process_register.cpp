// The file begins with a line that names its format, followed by a line with one character for each
// entry: a full stop if it is free, else an x. The note follows. All locks are
// open-file-description locks on single bytes: a registered process locks the byte of its entry,
// and `lock` locks the first byte of the file. So an x without a lock is a process that ended
// without deregistering. A void register has another first byte.
#include "platform/files/process_register.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/durable_file.h"
#include "platform/files/file_lock.h"

namespace teravolant::platform {
namespace {

constexpr std::string_view kFormat = "teravolant-processes 1\n";
constexpr off_t kFirstEntry = kFormat.size();
constexpr off_t kEntries = 64;
constexpr off_t kNote = kFirstEntry + kEntries + 1;
constexpr char kFree = '.';
constexpr char kTaken = 'x';
constexpr char kVoid = '-';

/// Returns 0 or an `errno` value: EAGAIN or EACCES if another process has the lock.
int lockByte(const FileDescriptor& file, off_t offset, short type) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = offset;
    lock.l_len = 1;
    return fcntl(file.get(), F_OFD_SETLK, &lock) == 0 ? 0 : errno;
}

/// Whether another process has a lock on the byte. If unknown, it counts as locked.
bool isLocked(const FileDescriptor& file, off_t offset) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = offset;
    lock.l_len = 1;
    return fcntl(file.get(), F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

/// Returns 0 or an `errno` value.
int writeByte(const FileDescriptor& file, off_t offset, char byte) {
    return pwrite(file.get(), &byte, 1, offset) == 1 && fdatasync(file.get()) == 0 ? 0 : errno;
}

/// Reads a file of at most 64 KiB.
std::string contentsOf(const FileDescriptor& file) {
    constexpr std::size_t kLargest = 65536;
    std::string contents(kLargest, '\0');
    const ssize_t size = pread(file.get(), contents.data(), contents.size(), 0);
    contents.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return contents;
}

bool isRegister(const std::string& contents) {
    return contents.starts_with(kFormat) && contents.size() >= kNote;
}

/// Returns the characters of all entries; an empty string for a void register.
std::string entriesOf(const FileDescriptor& file) {
    const std::string contents = contentsOf(file);
    return isRegister(contents) ? contents.substr(kFirstEntry, kEntries) : "";
}

}  // namespace

std::string ProcessRegister::emptyRegister(std::string_view note) {
    return std::string(kFormat) + std::string(kEntries, kFree) + "\n" + std::string(note);
}

Result<std::optional<ProcessRegister>> ProcessRegister::open(const std::filesystem::path& path) {
    FileDescriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    const bool isOtherItem = !file && (errno == EISDIR || errno == ELOOP);  // A folder, a link.
    if (!file && !isOtherItem) {
        using None = std::optional<ProcessRegister>;
        return errno == ENOENT ? Result<None>(None()) : readError(errno, path.native());
    }
    if (file && file.get() <= STDERR_FILENO) {
        // A standard stream was closed: writes to that stream must not reach the register.
        file = FileDescriptor(fcntl(file.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    }
    const std::string contents = isOtherItem ? "" : contentsOf(file);
    if (!isRegister(contents)) {
        return Error{.domain = std::string(NSCocoaErrorDomain),
                     .code = NSFileReadCorruptFileError,
                     .localizedDescription = quoted(path.native()) + " is not a register."};
    }
    return std::optional(ProcessRegister(path, std::move(file), contents));
}

ProcessRegister::ProcessRegister(std::filesystem::path path, FileDescriptor file,
                                 const std::string& contents)
    : _path(std::move(path)), _file(std::move(file)), _note(contents.substr(kNote)) {}

Status ProcessRegister::lock() {
    constexpr std::chrono::milliseconds kPause(5);
    const auto end = std::chrono::steady_clock::now() + kLockPatience;
    while (const int failure = lockByte(_file, 0, F_WRLCK)) {
        const bool isHeld = failure == EAGAIN || failure == EACCES;
        if (!isHeld || std::chrono::steady_clock::now() >= end) {
            return lockError(isHeld ? EWOULDBLOCK : failure, _path);
        }
        std::this_thread::sleep_for(kPause);
    }
    return std::nullopt;
}

void ProcessRegister::unlock() { lockByte(_file, 0, F_UNLCK); }

bool ProcessRegister::isValid() const {
    struct stat opened {};
    struct stat present {};
    return fstat(_file.get(), &opened) == 0 && lstat(_path.c_str(), &present) == 0 &&
           opened.st_dev == present.st_dev && opened.st_ino == present.st_ino &&
           isRegister(contentsOf(_file));
}

std::size_t ProcessRegister::countLost() const {
    std::size_t count = 0;
    off_t offset = kFirstEntry;
    for (const char entry : entriesOf(_file)) {
        count += entry == kTaken && !isLocked(_file, offset) ? 1 : 0;
        ++offset;
    }
    return count;
}

Status ProcessRegister::add() {
    off_t offset = kFirstEntry;
    for (const char entry : entriesOf(_file)) {
        if (entry == kFree && lockByte(_file, offset, F_WRLCK) == 0) {
            const int failure = writeByte(_file, offset, kTaken);
            _own = offset;
            if (failure != 0) {
                remove();
            }
            return failure == 0 ? Status() : writeError(failure, _path.native());
        }
        ++offset;
    }
    return writeError(ENOLCK, _path.native());
}

void ProcessRegister::remove() const {
    const int before = errno;
    if (_own != 0) {
        [[maybe_unused]] const ssize_t written = pwrite(_file.get(), &kFree, 1, _own);
    }
    errno = before;
}

Status ProcessRegister::makeVoid(File file) {
    int failure = writeByte(_file, 0, kVoid);
    if (file == File::Remove && unlink(_path.c_str()) == 0 && failure != 0) {
        failure = flushFolderOf(_path);
    }
    return failure == 0 ? Status() : writeError(failure, _path.native());
}

}  // namespace teravolant::platform
