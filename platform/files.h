#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/unique_fd.h"

// Folders and files of the current user. All operations may be called from any thread, block until
// they are done, and report a failure as a value of `NSCocoaErrorDomain`; none throws for one.
namespace teravolant::platform {

/// `$HOME`, else the password database, with its links resolved, so that paths below it can be
/// compared with those of running programs. "/nonexistent" for an account without a home.
[[nodiscard]] std::filesystem::path homeDirectoryForCurrentUser();

/// `$XDG_DATA_HOME`, else ~/.local/share.
[[nodiscard]] std::filesystem::path applicationSupportDirectory();

/// `$XDG_CONFIG_HOME`, else ~/.config.
[[nodiscard]] std::filesystem::path configurationDirectory();

/// `$XDG_CACHE_HOME`, else ~/.cache.
[[nodiscard]] std::filesystem::path cachesDirectory();

/// Where the machine's own services log: /var/log.
[[nodiscard]] std::filesystem::path machineLogDirectory();

struct FileAttributes {
    std::chrono::sys_time<std::chrono::nanoseconds> fileModificationDate;
    std::uint64_t fileSize = 0;  ///< Bytes.
};

/// The attributes of the item itself: a link is not followed.
Result<FileAttributes> attributesOfItem(const std::filesystem::path& path);

/// Whether something is there; a link counts as what it leads to.
[[nodiscard]] bool fileExists(const std::filesystem::path& path);

/// Makes the folder and those above it that are missing. An existing folder is a success.
[[nodiscard]] std::optional<Error> createDirectory(const std::filesystem::path& path);

/// Removes a file, a link, or a folder with all that it holds.
[[nodiscard]] std::optional<Error> removeItem(const std::filesystem::path& path);

/// As `removeItem`, but also where folders are closed to their owner. Nothing there is a success.
[[nodiscard]] std::optional<Error> removeTree(const std::filesystem::path& tree);

/// Copies a regular file with its permissions and its modification time, to the nanosecond.
/// Never replaces an existing item; a copy that fails part-way leaves nothing behind. A kill can
/// leave a part, which never has the source's time: that is set last, behind the flushed content.
[[nodiscard]] std::optional<Error> copyItem(const std::filesystem::path& source,
                                            const std::filesystem::path& target);

/// Renames an item within one file system, replacing a file at the target.
[[nodiscard]] std::optional<Error> moveItem(const std::filesystem::path& source,
                                            const std::filesystem::path& target);

/// Appends the bytes in one write, creating the file when it is not there. Writers that append at
/// the same time, in this process or another, do not mix their bytes. A named pipe that nobody
/// reads from is a failure, not a wait.
[[nodiscard]] std::optional<Error> appendToFile(const std::filesystem::path& path,
                                                std::string_view bytes);

enum class Links : std::uint8_t { Follow, Refuse };

/// Reads a regular file through one buffer of `pieceSize` bytes and hands on what each read gives.
/// A receiver that refuses ends that with its error. A folder, a device or a named pipe, which
/// would hold the reader up, is a failure.
[[nodiscard]] std::optional<Error> readInPieces(
    const std::filesystem::path& path, std::size_t pieceSize,
    const std::function<std::optional<Error>(std::string_view piece)>& receive,
    Links links = Links::Follow);

/// The whole of a regular file.
Result<std::string> contentsOfFile(const std::filesystem::path& path);

/// How long to wait for somebody else's lock: longer than any writer needs, but a suspended one
/// must not hold a start up for good.
inline constexpr std::chrono::milliseconds kLockPatience = std::chrono::seconds(10);

/// The file beside `path` in which its new content is made: hidden, with a name of its own that no
/// user's file has, and always the same one, so that killed programs leave at most that.
[[nodiscard]] std::filesystem::path temporaryPathFor(const std::filesystem::path& path);

/// Puts the bytes into the place of the file so that, whatever happens, the old or the new content
/// is there whole: temporary file, flush, rename, flush of the folder. `mode` is set as given.
/// The next call takes over the temporary file that a killed program left. Callers of one path take
/// turns by a lock on it; one that does not get its turn within `kLockPatience` fails with
/// `NSFileLockingError`.
[[nodiscard]] std::optional<Error> replaceFileDurably(const std::filesystem::path& path,
                                                      std::string_view bytes, unsigned mode);

/// Has the folder that holds the path remember what was made, moved or removed there; answers
/// `errno` or 0.
[[nodiscard]] int flushFolderOf(const std::filesystem::path& path);

/// Makes the file with that content and those permission bits, in one step: whatever happens, it is
/// there whole or not at all. Never replaces an existing item.
[[nodiscard]] std::optional<Error> createFileDurably(const std::filesystem::path& path,
                                                     std::string_view bytes, unsigned mode);

/// An exclusive lock between processes, held from creation to destruction.
///
/// Ends with its holder, also when that is killed. The lock file stays, for others may wait on it.
class FileLock {
  public:
    /// Takes the lock on the file at `path`; makes the file, readable by its owner only, when it is
    /// not there. Fails with `NSFileLockingError` when somebody else holds the lock all the time
    /// that it is willing to wait.
    static Result<FileLock> acquire(const std::filesystem::path& path,
                                    std::chrono::milliseconds patience = kLockPatience);

    /// As `acquire`, but answers nothing at once when somebody else holds the lock.
    static Result<std::optional<FileLock>> tryAcquire(const std::filesystem::path& path);

    /// As `tryAcquire`, for an existing folder, in which nothing is made. The lock stays with the
    /// folder where that is moved.
    static Result<std::optional<FileLock>> tryAcquireFolder(const std::filesystem::path& path);

  private:
    static Result<std::optional<FileLock>> tryLock(UniqueFd file,
                                                   const std::filesystem::path& path);

    explicit FileLock(UniqueFd descriptor) : _descriptor(std::move(descriptor)) {}

    UniqueFd _descriptor;
};

}  // namespace teravolant::platform
