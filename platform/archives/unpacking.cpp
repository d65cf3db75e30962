#include <cerrno>
#include <memory>

#include <archive.h>
#include <archive_entry.h>

#include "platform/archives/archives.h"
#include "platform/archives/rules.h"
#include "platform/archives/unpacked_tree.h"
#include "platform/core/deleter.h"
#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"

// How it works: libarchive detects the format and the compression and returns one entry after the
// other. The reader checks the name, mode and link target of each entry against the rules that
// packing shares (rules.h) and passes the entry to an `UnpackedTree`, which creates the item and
// enforces the limits. The first entry that fails ends the run: later entries are not read. The
// tree reports reasons; this file turns them into messages that name the entry.
namespace teravolant::platform {
namespace {

/// An update never lets other users change the bundle.
constexpr unsigned kPermissionBits = 0755;

using Reader = std::unique_ptr<archive, Deleter<archive_read_free>>;

ItemAttributes attributesOf(archive_entry* entry) {
    ItemAttributes attributes{.mode = archive_entry_perm(entry) & kPermissionBits};
    if (archive_entry_mtime_is_set(entry) != 0) {
        attributes.modificationTime = {.tv_sec = archive_entry_mtime(entry),
                                       .tv_nsec = archive_entry_mtime_nsec(entry)};
    }
    return attributes;
}

/// libarchive sets no message for some failures.
std::string messageOf(archive* reader) {
    const char* message = archive_error_string(reader);
    return message != nullptr ? message : "its contents can't be read";
}

/// Unpacks one archive into one tree.
class ArchiveReader {
  public:
    ArchiveReader(archive* reader, FileDescriptor root, const UnpackLimits& limits)
        : _reader(reader), _limits(limits), _tree(std::move(root), limits) {}

    Status unpackAll();

  private:
    Status unpackEntry(archive_entry* entry);
    Status unpackItem(archive_entry* entry, const PathComponents& path);
    Status unpackFile(archive_entry* entry, const PathComponents& path);
    Status unpackLink(archive_entry* entry, const PathComponents& path);
    Status unpackHardLink(std::string_view target, const PathComponents& path);
    [[nodiscard]] bool lacksItsEnd() const;

    [[nodiscard]] Status refusal(std::string_view reason) const;
    [[nodiscard]] Status damage() const;
    [[nodiscard]] Status errorOf(const TreeFailure& failure) const;
    [[nodiscard]] Status statusOf(const TreeStatus& status) const {
        return status ? Status(errorOf(*status)) : Status();
    }

    archive* _reader;
    UnpackLimits _limits;
    UnpackedTree _tree;

    std::string _entryTitle = "The archive";  ///< The subject of messages.
    std::uint64_t _entryNumber = 0;
};

std::string titleOf(const std::string& name) { return quoted(name) + " in the archive"; }

Status ArchiveReader::refusal(std::string_view reason) const {
    return archiveError(NSFileReadCorruptFileError, _entryTitle + " " + std::string(reason) +
                                                        ": the archive can't be unpacked.");
}

Status ArchiveReader::damage() const {
    // libarchive has no common error number for it.
    if (messageOf(_reader).find("memory") != std::string::npos) {
        return errorFromErrno(ENOMEM, FileAccess::Read, _entryTitle + " could not be unpacked");
    }
    return archiveError(NSFileReadCorruptFileError,
                        _entryTitle + " is damaged: " + messageOf(_reader) + ".");
}

Status ArchiveReader::errorOf(const TreeFailure& failure) const {
    using Reason = TreeFailure::Reason;
    switch (failure.reason) {
        case Reason::Exists:
            return refusal("occurs twice");
        case Reason::BelowFileOrLink:
            return refusal("lies below a file or a link");
        case Reason::NotAnEarlierFile:
            return refusal(
                "is a hard link whose target is not an earlier regular file in the archive");
        case Reason::TooManyItems:
            return archiveError(
                NSFileReadTooLargeError,
                "The archive contains more than " + std::to_string(_limits.items) + " items.");
        case Reason::TooManyBytes:
            return archiveError(NSFileReadTooLargeError,
                                _entryTitle + " is too large: the archive unpacks to more than " +
                                    std::to_string(_limits.bytes) + " bytes.");
        case Reason::System:
            break;
    }
    const std::string title = failure.folder.empty() ? _entryTitle : titleOf(failure.folder);
    return errorFromErrno(failure.errorNumber, FileAccess::Write, title + " could not be unpacked");
}

/// Whether a tar archive was cut between two entries. libarchive reports that as a normal end, but
/// without the end marker it has read nothing beyond the position of the header it looked for last.
bool ArchiveReader::lacksItsEnd() const {
    return (archive_format(_reader) & ARCHIVE_FORMAT_BASE_MASK) == ARCHIVE_FORMAT_TAR &&
           archive_filter_bytes(_reader, 0) <= archive_read_header_position(_reader);
}

Status ArchiveReader::unpackAll() {
    while (true) {
        archive_entry* entry = nullptr;
        const int status = archive_read_next_header(_reader, &entry);
        if (status == ARCHIVE_EOF) {
            break;
        }
        ++_entryNumber;
        _entryTitle = "Entry " + std::to_string(_entryNumber) + " of the archive";
        // A warning is a failure too: a part of the entry would be lost.
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
    return statusOf(_tree.finishFolders());
}

Status ArchiveReader::unpackEntry(archive_entry* entry) {
    const char* name = archive_entry_pathname(entry);
    if (name == nullptr || !isValidUtf8(name)) {
        return refusal("has a name that is not UTF-8");
    }
    _entryTitle = titleOf(name);
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
    // The caller created the root folder and keeps its attributes.
    return archive_entry_filetype(entry) == AE_IFDIR ? Status()
                                                     : refusal("has the name of the folder itself");
}

Status ArchiveReader::unpackItem(archive_entry* entry, const PathComponents& path) {
    if (const char* target = archive_entry_hardlink(entry)) {
        return unpackHardLink(target, path);
    }
    switch (archive_entry_filetype(entry)) {
        case AE_IFREG:
            return unpackFile(entry, path);
        case AE_IFDIR:
            return statusOf(_tree.createFolder(path, attributesOf(entry)));
        case AE_IFLNK:
            return unpackLink(entry, path);
        default:
            return refusal("is not a file, a folder or a link");
    }
}

Status ArchiveReader::unpackFile(archive_entry* entry, const PathComponents& path) {
    const auto announced = static_cast<std::uint64_t>(archive_entry_size(entry));
    if (auto failure = _tree.createFile(path, announced)) {
        return errorOf(*failure);
    }
    while (true) {
        const void* block = nullptr;
        std::size_t size = 0;
        la_int64_t position = 0;
        const int status = archive_read_data_block(_reader, &block, &size, &position);
        if (status == ARCHIVE_EOF) {
            break;
        }
        const auto offset = static_cast<std::uint64_t>(position);
        if (status != ARCHIVE_OK || position < 0 || offset < _tree.fileSize()) {
            return damage();
        }
        if (auto failure = _tree.writeToFile({static_cast<const char*>(block), size}, offset)) {
            return errorOf(*failure);
        }
    }
    // libarchive returns no block for a hole at the end: the announced size restores it.
    return statusOf(_tree.finishFile(announced, attributesOf(entry)));
}

Status ArchiveReader::unpackLink(archive_entry* entry, const PathComponents& path) {
    const char* text = archive_entry_symlink(entry);
    const std::string target = text != nullptr ? text : "";
    if (auto reason = refusalOfLink(target, path.size() - 1, _limits)) {
        return refusal(*reason);
    }
    return statusOf(_tree.createLink(path, target, attributesOf(entry)));
}

Status ArchiveReader::unpackHardLink(std::string_view target, const PathComponents& path) {
    const auto original = componentsOfEntry(target, _limits);
    if (!original || original->empty()) {
        return refusal("is a hard link that leads out of the folder");
    }
    return statusOf(_tree.createHardLink(path, *original));
}

Reader newReader() {
    Reader reader(archive_read_new());
    if (!reader || archive_read_support_format_tar(reader.get()) != ARCHIVE_OK ||
        archive_read_support_filter_zstd(reader.get()) != ARCHIVE_OK) {
        return nullptr;
    }
    return reader;
}

}  // namespace

Status unpackArchive(int archive, FileDescriptor folder, const UnpackLimits& limits) {
    const Reader reader = newReader();
    if (!reader) {
        return errorFromErrno(ENOMEM, FileAccess::Read, "The archive could not be read");
    }
    if (archive_read_open_fd(reader.get(), archive, kArchiveReadSize) != ARCHIVE_OK) {
        return archiveError(NSFileReadCorruptFileError,
                            "The archive has no known format: " + messageOf(reader.get()) + ".");
    }
    return ArchiveReader(reader.get(), std::move(folder), limits).unpackAll();
}

}  // namespace teravolant::platform
