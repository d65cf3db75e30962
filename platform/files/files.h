#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "platform/core/file_descriptor.h"
#include "platform/core/result.h"

// Operations on files and directories. All of them may be called from any thread, block until they
// are done, and return failures as errors of `NSCocoaErrorDomain`. None throws on failure.
namespace teravolant::platform {

enum class Links : std::uint8_t { Follow, Refuse };

struct FileAttributes {
    std::chrono::sys_time<std::chrono::nanoseconds> fileModificationDate;
    std::uint64_t fileSize = 0;  ///< Bytes.
};

/// Returns the attributes of the item itself: does not follow a link.
Result<FileAttributes> attributesOfItem(const std::filesystem::path& path);

/// Whether an item exists at `path`. Follows links.
[[nodiscard]] bool fileExists(const std::filesystem::path& path);

/// Creates the directory and its missing parents. Succeeds if the directory exists.
Status createDirectory(const std::filesystem::path& path);

/// Removes a file, a link, or a directory with its contents.
Status removeItem(const std::filesystem::path& path);

/// Like `removeItem`, but first makes every directory of the tree writable by its owner. Succeeds
/// if nothing exists at `tree`.
Status removeTree(const std::filesystem::path& tree);

/// Copies a regular file with its permissions and its modification time, to the nanosecond.
///
/// Never replaces an existing item. A copy that fails removes its partial target. A kill can leave
/// a partial target, whose modification time differs from the source's: that time is set last,
/// after the contents are fsynced.
Status copyItem(const std::filesystem::path& source, const std::filesystem::path& target);

/// Renames an item within one file system, replacing a file at `target`.
Status moveItem(const std::filesystem::path& source, const std::filesystem::path& target);

/// Appends `bytes` with one write and creates the file if it is missing. Concurrent appends, of
/// this process or another, do not mix their bytes. Fails instead of blocking on a named pipe
/// without a reader. With `Links::Refuse`, fails if `path` is a symbolic link.
Status appendToFile(const std::filesystem::path& path, std::string_view bytes,
                    Links links = Links::Follow);

/// Reads a regular file through one buffer of `pieceSize` bytes and passes the result of each read
/// to `receive`, whose error ends the reading and is returned. Fails for a directory, a device or a
/// named pipe.
Status readInPieces(const std::filesystem::path& path, std::size_t pieceSize,
                    const std::function<Status(std::string_view piece)>& receive,
                    Links links = Links::Follow);

/// The same for an open file, from its beginning. `path` is for messages.
Status readOpenFile(const FileDescriptor& file, const std::filesystem::path& path,
                    std::size_t pieceSize,
                    const std::function<Status(std::string_view piece)>& receive);

/// Returns the contents of a regular file.
Result<std::string> contentsOfFile(const std::filesystem::path& path);

}  // namespace teravolant::platform
