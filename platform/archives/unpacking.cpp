#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <span>

#include <archive.h>
#include <archive_entry.h>

#include "platform/archives/archives.h"
#include "platform/archives/rules.h"
#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

constexpr mode_t kWhileUnpacking = 0700;
constexpr mode_t kFolderWithoutEntry = 0755;

struct FreeReader {
    void operator()(archive* reader) const { archive_read_free(reader); }
};
using Reader = std::unique_ptr<archive, FreeReader>;

using FileTimes = std::array<timespec, 2>;

/// What a folder gets once nothing is put into it any more.
struct FolderRecord {
    mode_t mode = kFolderWithoutEntry;
    FileTimes times{timespec{.tv_sec = 0, .tv_nsec = UTIME_OMIT},
                    timespec{.tv_sec = 0, .tv_nsec = UTIME_OMIT}};
    bool hasEntry = false;
};

FileTimes timesOf(archive_entry* entry) {
    const timespec untouched{.tv_sec = 0, .tv_nsec = UTIME_OMIT};
    if (archive_entry_mtime_is_set(entry) == 0) {
        return {untouched, untouched};
    }
    const timespec modified{.tv_sec = archive_entry_mtime(entry),
                            .tv_nsec = archive_entry_mtime_nsec(entry)};
    return {untouched, modified};
}

/// The library leaves some failures without a message.
std::string messageOf(archive* reader) {
    const char* message = archive_error_string(reader);
    return message != nullptr ? message : "its contents can't be read";
}

FileDescriptor openFolderIn(int parent, const std::string& name) {
    return FileDescriptor(
        openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

FileDescriptor duplicate(int descriptor) {
    return FileDescriptor(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
}

/// Opens a folder that is there, through real folders only; -1 with `errno` when there is none.
FileDescriptor openFolderBelow(int root, const std::filesystem::path& path) {
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

/// Writes all bytes at the offset; answers `errno` or 0.
int writeAllAt(int descriptor, std::string_view bytes, off_t offset) {
    while (!bytes.empty()) {
        const ssize_t written = pwrite(descriptor, bytes.data(), bytes.size(), offset);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
        offset += written;
    }
    return 0;
}

/// One run over one archive.
///
/// Every item is made relative to the descriptor of the folder that holds it, and that folder is
/// reached from the root one component at a time without following a link. Nothing that was made is
/// ever replaced or removed. So no name and no order of entries leads anywhere else.
class Unpacker {
  public:
    Unpacker(archive* reader, FileDescriptor root, const UnpackLimits& limits)
        : _reader(reader), _root(std::move(root)), _limits(limits) {}

    Status unpackAll();

  private:
    Status unpackEntry(archive_entry* entry);
    Status unpackItem(archive_entry* entry, const PathComponents& path);
    Status unpackFolder(archive_entry* entry, const PathComponents& path);
    Status unpackFile(archive_entry* entry, const std::string& name);
    Status unpackData(archive_entry* entry, int file);
    Status unpackLink(archive_entry* entry, const PathComponents& path);
    Status unpackHardLink(std::string_view target, const std::string& name);
    Status enterFolder(std::span<const std::string> path);
    Status makeFolder(int parent, const std::string& name, const std::string& path);
    Status finishFolders();

    Status countItem();
    Status countBytes(std::uint64_t more);
    [[nodiscard]] bool lacksItsEnd() const;

    [[nodiscard]] Error refusal(std::string_view reason) const;
    [[nodiscard]] Error damage() const;
    [[nodiscard]] Error failure(int errorNumber) const;

    archive* _reader;
    FileDescriptor _root;
    UnpackLimits _limits;

    std::string _entryTitle = "The archive";  ///< For messages.
    std::uint64_t _entryNumber = 0;
    std::uint64_t _items = 0;
    std::uint64_t _bytes = 0;
    /// Backwards, so that a folder that its owner may not search is closed after those inside it.
    std::map<std::string, FolderRecord, std::greater<>> _folders;

    FileDescriptor _folder;  ///< The one that was entered last, kept for the entries beside.
    std::string _folderPath;
};

Error Unpacker::refusal(std::string_view reason) const {
    return archiveError(NSFileReadCorruptFileError, _entryTitle + " " + std::string(reason) +
                                                        ": the archive can't be unpacked.");
}

Error Unpacker::damage() const {
    return archiveError(NSFileReadCorruptFileError,
                        _entryTitle + " is damaged: " + messageOf(_reader) + ".");
}

Error Unpacker::failure(int errorNumber) const {
    return errorFromErrno(errorNumber, FileAccess::Write, _entryTitle + " could not be unpacked");
}

Status Unpacker::countItem() {
    if (++_items <= _limits.items) {
        return std::nullopt;
    }
    return archiveError(NSFileReadTooLargeError,
                        "The archive holds more than " + std::to_string(_limits.items) + " items.");
}

Status Unpacker::countBytes(std::uint64_t more) {
    if (more <= _limits.bytes - _bytes) {
        _bytes += more;
        return std::nullopt;
    }
    return archiveError(NSFileReadTooLargeError,
                        _entryTitle + " is too large: the archive unpacks to more than " +
                            std::to_string(_limits.bytes) + " bytes.");
}

/// Whether a tar archive stopped between two entries: the library takes that for its end, but then
/// it has read nothing after the place of the header that it looked for last.
bool Unpacker::lacksItsEnd() const {
    return (archive_format(_reader) & ARCHIVE_FORMAT_BASE_MASK) == ARCHIVE_FORMAT_TAR &&
           archive_filter_bytes(_reader, 0) <= archive_read_header_position(_reader);
}

Status Unpacker::unpackAll() {
    while (true) {
        archive_entry* entry = nullptr;
        const int status = archive_read_next_header(_reader, &entry);
        if (status == ARCHIVE_EOF) {
            break;
        }
        ++_entryNumber;
        _entryTitle = "Entry " + std::to_string(_entryNumber) + " of the archive";
        // A warning is a failure too: it says that something of the entry would be lost.
        if (status != ARCHIVE_OK) {
            return damage();
        }
        if (auto error = unpackEntry(entry)) {
            return error;
        }
    }
    _entryTitle = "The archive";
    if (lacksItsEnd()) {
        return refusal("is cut short");
    }
    return finishFolders();
}

Status Unpacker::unpackEntry(archive_entry* entry) {
    const char* name = archive_entry_pathname(entry);
    if (name == nullptr || !isValidUtf8(name)) {
        return refusal("has a name that is not UTF-8");
    }
    _entryTitle = "“" + std::string(name) + "” in the archive";
    const auto path = componentsOfEntry(name, _limits);
    if (!path) {
        return refusal(path.error().localizedDescription);
    }
    if (auto reason = refusalOfMode(archive_entry_perm(entry))) {
        return refusal(*reason);
    }
    if (!path->empty()) {
        return unpackItem(entry, *path);
    }
    if (archive_entry_filetype(entry) == AE_IFDIR) {
        return std::nullopt;  // the folder itself, which is the caller's
    }
    return refusal("has the name of the folder itself");
}

Status Unpacker::unpackItem(archive_entry* entry, const PathComponents& path) {
    if (auto error = enterFolder(parentOf(path))) {
        return error;
    }
    if (const char* target = archive_entry_hardlink(entry)) {
        return unpackHardLink(target, path.back());
    }
    switch (archive_entry_filetype(entry)) {
        case AE_IFREG:
            return unpackFile(entry, path.back());
        case AE_IFDIR:
            return unpackFolder(entry, path);
        case AE_IFLNK:
            return unpackLink(entry, path);
        default:
            return refusal("is neither a file nor a folder nor a link");
    }
}

Status Unpacker::enterFolder(std::span<const std::string> path) {
    if (_folder && _folderPath == joined(path)) {
        return std::nullopt;
    }
    FileDescriptor folder = duplicate(_root.get());
    std::string reached;
    for (const std::string& name : path) {
        reached += (reached.empty() ? "" : "/") + name;
        FileDescriptor next = openFolderIn(folder.get(), name);
        if (!next && errno == ENOENT) {
            if (auto error = makeFolder(folder.get(), name, reached)) {
                return error;
            }
            next = openFolderIn(folder.get(), name);
        }
        if (!next) {
            return errno == ENOTDIR || errno == ELOOP ? refusal("lies below a file or a link")
                                                      : failure(errno);
        }
        folder = std::move(next);
    }
    if (!folder) {
        return failure(errno);
    }
    _folder = std::move(folder);
    _folderPath = std::move(reached);
    return std::nullopt;
}

Status Unpacker::makeFolder(int parent, const std::string& name, const std::string& path) {
    if (auto error = countItem()) {
        return error;
    }
    if (mkdirat(parent, name.c_str(), kWhileUnpacking) != 0) {
        return errno == EEXIST ? refusal("is there twice") : failure(errno);
    }
    _folders.emplace(path, FolderRecord{});
    return std::nullopt;
}

Status Unpacker::unpackFolder(archive_entry* entry, const PathComponents& path) {
    const std::string whole = joined(path);
    if (!_folders.contains(whole)) {
        if (auto error = makeFolder(_folder.get(), path.back(), whole)) {
            return error;
        }
    }
    FolderRecord& record = _folders[whole];
    if (record.hasEntry) {
        return refusal("is there twice");
    }
    record = {.mode = archive_entry_perm(entry) & kPermissionBits,
              .times = timesOf(entry),
              .hasEntry = true};
    return std::nullopt;
}

Status Unpacker::unpackFile(archive_entry* entry, const std::string& name) {
    if (auto error = countItem()) {
        return error;
    }
    const FileDescriptor file(openat(_folder.get(), name.c_str(),
                                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) {
        return errno == EEXIST ? refusal("is there twice") : failure(errno);
    }
    if (auto error = unpackData(entry, file.get())) {
        return error;
    }
    if (fchmod(file.get(), archive_entry_perm(entry) & kPermissionBits) != 0 ||
        futimens(file.get(), timesOf(entry).data()) != 0) {
        return failure(errno);
    }
    return std::nullopt;
}

Status Unpacker::unpackData(archive_entry* entry, int file) {
    const auto announced = static_cast<std::uint64_t>(archive_entry_size(entry));
    if (announced > _limits.bytes - _bytes) {
        return countBytes(announced);
    }
    std::uint64_t end = 0;
    while (true) {
        const void* block = nullptr;
        std::size_t size = 0;
        la_int64_t offset = 0;
        const int status = archive_read_data_block(_reader, &block, &size, &offset);
        if (status == ARCHIVE_EOF) {
            break;
        }
        if (status != ARCHIVE_OK || offset < 0 || static_cast<std::uint64_t>(offset) < end) {
            return damage();
        }
        const std::uint64_t newEnd = static_cast<std::uint64_t>(offset) + size;
        if (auto error = countBytes(newEnd - end)) {
            return error;
        }
        if (const int number = writeAllAt(file, {static_cast<const char*>(block), size}, offset)) {
            return failure(number);
        }
        end = newEnd;
    }
    // A hole at the end has no block.
    if (announced <= end) {
        return std::nullopt;
    }
    if (auto error = countBytes(announced - end)) {
        return error;
    }
    return ftruncate(file, static_cast<off_t>(announced)) == 0 ? Status() : failure(errno);
}

Status Unpacker::unpackLink(archive_entry* entry, const PathComponents& path) {
    const char* target = archive_entry_symlink(entry);
    if (auto reason = refusalOfLink(target ? target : "", path.size() - 1, _limits)) {
        return refusal(*reason);
    }
    if (auto error = countItem()) {
        return error;
    }
    const char* name = path.back().c_str();
    if (symlinkat(target, _folder.get(), name) != 0) {
        return errno == EEXIST ? refusal("is there twice") : failure(errno);
    }
    if (utimensat(_folder.get(), name, timesOf(entry).data(), AT_SYMLINK_NOFOLLOW) != 0) {
        return failure(errno);
    }
    return std::nullopt;
}

Status Unpacker::unpackHardLink(std::string_view target, const std::string& name) {
    const auto path = componentsOfEntry(target, _limits);
    if (!path || path->empty()) {
        return refusal("is a hard link that leads out of the folder");
    }
    if (auto error = countItem()) {
        return error;
    }
    // The folder was empty: what stands in it was unpacked before.
    const FileDescriptor folder = openFolderBelow(_root.get(), joined(parentOf(*path)));
    const char* original = path->back().c_str();
    struct stat status {};
    if (!folder || fstatat(folder.get(), original, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(status.st_mode)) {
        return refusal("is a hard link to something that is no file before it in the archive");
    }
    if (linkat(folder.get(), original, _folder.get(), name.c_str(), 0) != 0) {
        return errno == EEXIST ? refusal("is there twice") : failure(errno);
    }
    return std::nullopt;
}

Status Unpacker::finishFolders() {
    for (const auto& [path, record] : _folders) {
        const FileDescriptor folder = openFolderBelow(_root.get(), path);
        if (!folder || futimens(folder.get(), record.times.data()) != 0 ||
            fchmod(folder.get(), record.mode) != 0) {
            _entryTitle = "“" + path + "” in the archive";
            return failure(errno);
        }
    }
    return std::nullopt;
}

Reader newReader() {
    Reader reader(archive_read_new());
    // The zip reader that starts from the central directory: only there stand modes and links, and
    // a zip that was cut short has none.
    if (!reader || archive_read_support_format_zip_seekable(reader.get()) != ARCHIVE_OK ||
        archive_read_support_format_tar(reader.get()) != ARCHIVE_OK ||
        archive_read_support_filter_gzip(reader.get()) != ARCHIVE_OK ||
        archive_read_support_filter_xz(reader.get()) != ARCHIVE_OK ||
        archive_read_support_filter_zstd(reader.get()) != ARCHIVE_OK ||
        archive_read_support_filter_bzip2(reader.get()) != ARCHIVE_OK) {
        return nullptr;
    }
    return reader;
}

}  // namespace

Status unpackArchive(const std::filesystem::path& archive, const std::filesystem::path& folder,
                     const UnpackLimits& limits) {
    const Utf8Names utf8;
    FileDescriptor root(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    std::error_code unreadable;
    const bool empty = std::filesystem::is_empty(folder, unreadable);
    if (!root || unreadable || !empty) {
        const int reason = !root ? errno : unreadable ? unreadable.value() : ENOTEMPTY;
        return errorFromErrno(reason, FileAccess::Write,
                              "Nothing can be unpacked into “" + folder.string() + "”");
    }
    const FileDescriptor file(open(archive.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file) {
        return errorFromErrno(errno, FileAccess::Read,
                              "The archive “" + archive.string() + "” could not be read");
    }
    const Reader reader = newReader();
    if (!reader) {
        return archiveError(NSFileReadUnknownError, "This machine can't read archives.");
    }
    if (archive_read_open_fd(reader.get(), file.get(), kArchiveReadSize) != ARCHIVE_OK) {
        return archiveError(NSFileReadCorruptFileError,
                            "“" + archive.filename().string() +
                                "” is no archive that is known: " + messageOf(reader.get()) + ".");
    }
    return Unpacker(reader.get(), std::move(root), limits).unpackAll();
}

}  // namespace teravolant::platform
