#include "platform/archives/unpacked_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <span>

// How it works: every item is created with a call relative to the descriptor of its parent folder
// (mkdirat, openat, symlinkat, linkat), and each of these calls fails if the name exists. The
// parent is reached from the root one component at a time with O_NOFOLLOW, so that a link in the
// path ends the walk with ELOOP or ENOTDIR. Therefore neither a name nor the order of the entries
// can redirect a write, even if the tree already contains links. Folders stay at mode 0700 while
// items are added, because an entry may set a mode that forbids its owner to write; the recorded
// modes and times are applied at the end, when no later item changes them again.
namespace teravolant::platform {
namespace {

using Reason = TreeFailure::Reason;

constexpr mode_t kFolderModeWhileUnpacking = 0700;
constexpr mode_t kFileModeWhileUnpacking = 0600;
constexpr unsigned kModeOfFolderWithoutEntry = 0755;

/// In the form of utimensat: access time, modification time.
std::array<timespec, 2> timesOf(const ItemAttributes& attributes) {
    const timespec untouched{.tv_sec = 0, .tv_nsec = UTIME_OMIT};
    return {untouched, attributes.modificationTime.value_or(untouched)};
}

TreeStatus failed(Reason reason) { return TreeFailure{.reason = reason}; }

TreeStatus systemFailure(int errorNumber) {
    return TreeFailure{.reason = Reason::System, .errorNumber = errorNumber};
}

TreeStatus creationFailure(int errorNumber) {
    return errorNumber == EEXIST ? failed(Reason::Exists) : systemFailure(errorNumber);
}

FileDescriptor openFolderIn(int parent, const std::string& name) {
    return FileDescriptor(
        openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

FileDescriptor duplicate(const FileDescriptor& descriptor) {
    return FileDescriptor(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, 0));
}

/// Returns -1 and sets `errno` if the folder does not exist or a component is not a folder.
FileDescriptor openFolderBelow(const FileDescriptor& root, const std::filesystem::path& path) {
    FileDescriptor folder = duplicate(root);
    for (const std::filesystem::path& component : path) {
        if (folder) {
            folder = openFolderIn(folder.get(), component);
        }
    }
    return folder;
}

std::string joined(std::span<const std::string> path) {
    std::string text;
    for (const std::string& component : path) {
        text += (text.empty() ? "" : "/") + component;
    }
    return text;
}

std::span<const std::string> parentOf(const PathComponents& path) {
    return std::span(path).first(path.size() - 1);
}

/// Returns 0 or an `errno` value.
int writeAllAt(int descriptor, std::string_view bytes, off_t offset) {
    while (!bytes.empty()) {
        const ssize_t written = pwrite(descriptor, bytes.data(), bytes.size(), offset);
        if (written < 0 && errno != EINTR) {
            return errno;
        }
        const ssize_t count = written < 0 ? 0 : written;
        bytes.remove_prefix(static_cast<std::size_t>(count));
        offset += count;
    }
    return 0;
}

}  // namespace

TreeStatus UnpackedTree::countItem() {
    return ++_items > _limits.items ? failed(Reason::TooManyItems) : std::nullopt;
}

TreeStatus UnpackedTree::countBytes(std::uint64_t more) {
    if (more > _limits.bytes - _bytes) {
        return failed(Reason::TooManyBytes);
    }
    _bytes += more;
    return std::nullopt;
}

TreeStatus UnpackedTree::enterParentOf(const PathComponents& path) {
    const auto parent = parentOf(path);
    if (_folder && _folderPath == joined(parent)) {
        return std::nullopt;
    }
    FileDescriptor folder = duplicate(_root);
    std::string reached;
    for (const std::string& name : parent) {
        reached += (reached.empty() ? "" : "/") + name;
        FileDescriptor next = openFolderIn(folder.get(), name);
        if (!next && errno == ENOENT) {
            if (auto failure = makeFolder(folder.get(), name, reached)) {
                return failure;
            }
            next = openFolderIn(folder.get(), name);
        }
        if (!next) {
            return errno == ENOTDIR || errno == ELOOP ? failed(Reason::BelowFileOrLink)
                                                      : systemFailure(errno);
        }
        folder = std::move(next);
    }
    if (!folder) {
        return systemFailure(errno);
    }
    _folder = std::move(folder);
    _folderPath = std::move(reached);
    return std::nullopt;
}

TreeStatus UnpackedTree::makeFolder(int parent, const std::string& name, const std::string& path) {
    if (auto failure = countItem()) {
        return failure;
    }
    if (mkdirat(parent, name.c_str(), kFolderModeWhileUnpacking) != 0) {
        return creationFailure(errno);
    }
    _folders.emplace(path, FolderRecord{.attributes = {.mode = kModeOfFolderWithoutEntry}});
    return std::nullopt;
}

TreeStatus UnpackedTree::createFolder(const PathComponents& path,
                                      const ItemAttributes& attributes) {
    if (auto failure = enterParentOf(path)) {
        return failure;
    }
    const std::string whole = joined(path);
    if (!_folders.contains(whole)) {
        if (auto failure = makeFolder(_folder.get(), path.back(), whole)) {
            return failure;
        }
    }
    FolderRecord& record = _folders[whole];
    if (record.hasEntry) {
        return failed(Reason::Exists);
    }
    record = {.attributes = attributes, .hasEntry = true};
    return std::nullopt;
}

TreeStatus UnpackedTree::createFile(const PathComponents& path, std::uint64_t size) {
    if (auto failure = enterParentOf(path)) {
        return failure;
    }
    if (auto failure = countItem()) {
        return failure;
    }
    _file = FileDescriptor(openat(_folder.get(), path.back().c_str(),
                                  O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                  kFileModeWhileUnpacking));
    if (!_file) {
        return creationFailure(errno);
    }
    _fileSize = 0;
    return size > _limits.bytes - _bytes ? failed(Reason::TooManyBytes) : std::nullopt;
}

TreeStatus UnpackedTree::writeToFile(std::string_view bytes, std::uint64_t offset) {
    const std::uint64_t end = offset + bytes.size();
    if (auto failure = countBytes(end - _fileSize)) {
        return failure;
    }
    if (const int number = writeAllAt(_file.get(), bytes, static_cast<off_t>(offset))) {
        return systemFailure(number);
    }
    _fileSize = end;
    return std::nullopt;
}

TreeStatus UnpackedTree::finishFile(std::uint64_t size, const ItemAttributes& attributes) {
    if (size > _fileSize) {
        if (auto failure = countBytes(size - _fileSize)) {
            return failure;
        }
        if (ftruncate(_file.get(), static_cast<off_t>(size)) != 0) {
            return systemFailure(errno);
        }
    }
    if (fchmod(_file.get(), attributes.mode) != 0 ||
        futimens(_file.get(), timesOf(attributes).data()) != 0) {
        return systemFailure(errno);
    }
    _file.reset();
    return std::nullopt;
}

TreeStatus UnpackedTree::createLink(const PathComponents& path, const std::string& target,
                                    const ItemAttributes& attributes) {
    if (auto failure = enterParentOf(path)) {
        return failure;
    }
    if (auto failure = countItem()) {
        return failure;
    }
    const char* name = path.back().c_str();
    if (symlinkat(target.c_str(), _folder.get(), name) != 0) {
        return creationFailure(errno);
    }
    if (utimensat(_folder.get(), name, timesOf(attributes).data(), AT_SYMLINK_NOFOLLOW) != 0) {
        return systemFailure(errno);
    }
    return std::nullopt;
}

TreeStatus UnpackedTree::createHardLink(const PathComponents& path,
                                        const PathComponents& original) {
    if (auto failure = enterParentOf(path)) {
        return failure;
    }
    if (auto failure = countItem()) {
        return failure;
    }
    const FileDescriptor folder = openFolderBelow(_root, joined(parentOf(original)));
    const char* target = original.back().c_str();
    struct stat status {};
    if (!folder || fstatat(folder.get(), target, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(status.st_mode)) {
        return failed(Reason::NotAnEarlierFile);
    }
    if (linkat(folder.get(), target, _folder.get(), path.back().c_str(), 0) != 0) {
        return creationFailure(errno);
    }
    return std::nullopt;
}

TreeStatus UnpackedTree::finishFolders() {
    for (const auto& [path, record] : _folders) {
        const FileDescriptor folder = openFolderBelow(_root, path);
        if (!folder || futimens(folder.get(), timesOf(record.attributes).data()) != 0 ||
            fchmod(folder.get(), record.attributes.mode) != 0) {
            return TreeFailure{.reason = Reason::System, .errorNumber = errno, .folder = path};
        }
    }
    return std::nullopt;
}

}  // namespace teravolant::platform
