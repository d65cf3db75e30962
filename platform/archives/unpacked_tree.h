#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/archives/rules.h"
#include "platform/core/file_descriptor.h"

namespace teravolant::platform {

/// Why an operation on an `UnpackedTree` failed.
struct TreeFailure {
    enum class Reason : std::uint8_t {
        Exists,            ///< The tree already contains an item with this path.
        BelowFileOrLink,   ///< A parent of the item is not a folder.
        NotAnEarlierFile,  ///< The target of a hard link is not a regular file in the tree.
        TooManyItems,
        TooManyBytes,
        System,  ///< A system call failed.
    };

    Reason reason;
    int errorNumber = 0;      ///< The `errno` value of `System`.
    std::string folder = {};  ///< The folder that `finishFolders` failed for, else empty.
};

/// A failure or nothing.
using TreeStatus = std::optional<TreeFailure>;

/// What an item receives from its archive entry.
struct ItemAttributes {
    unsigned mode = 0;  ///< Permission bits only. Ignored for symbolic links.
    /// Without a value the item keeps the time of its creation.
    std::optional<std::timespec> modificationTime = {};
};

/// A tree of folders, files and links that is created below one root folder.
///
/// Confines untrusted paths to the root: never follows a link and never replaces or removes an
/// item. Counts items and bytes against the limits and creates nothing beyond them. Creates missing
/// parent folders. Paths are relative to the root and have at least one component, none of which is
/// `.` or `..`. Used by one thread. After a failure only the destructor may be called.
class UnpackedTree {
  public:
    /// `root` is an empty folder.
    UnpackedTree(FileDescriptor root, const UnpackLimits& limits)
        : _root(std::move(root)), _limits(limits) {}

    /// Remembers the attributes for `finishFolders`. Fails for the second call with one path, but
    /// not for a folder that was created as a parent.
    TreeStatus createFolder(const PathComponents& path, const ItemAttributes& attributes);

    /// Creates an empty file for `writeToFile` and `finishFile`. Fails if `size`, which the file is
    /// announced to have, exceeds the limit.
    TreeStatus createFile(const PathComponents& path, std::uint64_t size);

    /// Writes to the file that was created last. `offset` must be at least `fileSize()`; the gap
    /// between them becomes a hole.
    TreeStatus writeToFile(std::string_view bytes, std::uint64_t offset);

    /// The number of bytes up to the end of the last write.
    [[nodiscard]] std::uint64_t fileSize() const { return _fileSize; }

    /// Extends the file to `size` if it is shorter, sets its attributes and closes it.
    TreeStatus finishFile(std::uint64_t size, const ItemAttributes& attributes);

    /// Creates a symbolic link. The caller checks the target.
    TreeStatus createLink(const PathComponents& path, const std::string& target,
                          const ItemAttributes& attributes);

    /// Creates a hard link to `original`, a regular file of this tree.
    TreeStatus createHardLink(const PathComponents& path, const PathComponents& original);

    /// Applies modes and times to all folders. Called once, after the last item: until then every
    /// folder is writable for its owner.
    TreeStatus finishFolders();

  private:
    struct FolderRecord {
        ItemAttributes attributes;
        bool hasEntry = false;
    };

    TreeStatus enterParentOf(const PathComponents& path);
    TreeStatus makeFolder(int parent, const std::string& name, const std::string& path);
    TreeStatus countItem();
    TreeStatus countBytes(std::uint64_t more);

    FileDescriptor _root;
    UnpackLimits _limits;
    std::uint64_t _items = 0;
    std::uint64_t _bytes = 0;

    /// By path. In descending order, because the mode of a folder may make its contents
    /// inaccessible: `finishFolders` visits those first.
    std::map<std::string, FolderRecord, std::greater<>> _folders;

    /// The folder of the last item. Cached because an archive lists the items of a folder together.
    FileDescriptor _folder;
    std::string _folderPath;

    FileDescriptor _file;
    std::uint64_t _fileSize = 0;
};

}  // namespace teravolant::platform
