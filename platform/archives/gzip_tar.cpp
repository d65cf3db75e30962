// How it works: zlib uncompresses the file and verifies the checksum and the length at its end;
// libarchive only reads the tar format, because its own gzip filter does not verify them.
// libarchive stops at the end marker. What follows it is read here, so that every byte is checked.
#include "platform/archives/gzip_tar.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include <archive.h>
#include <archive_entry.h>
#include <zlib.h>

#include "platform/archives/rules.h"
#include "platform/core/deleter.h"
#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

/// Both buffers stay in the second-level cache of the processor: twice as fast as larger ones.
constexpr std::size_t kBufferSize = std::size_t{64} * 1024;

Status damage(std::string reason) {
    return archiveError(NSFileReadCorruptFileError, std::move(reason));
}

/// The uncompressed bytes of a gzip file: one member or several (RFC 1952, section 2.2).
class GzipFile {
  public:
    explicit GzipFile(const fs::path& path)
        : _file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)),
          _openFailure(_file ? 0 : errno),
          _input(kBufferSize),
          _output(kBufferSize) {
        constexpr int kGzipOnly = 16;
        if (_file && inflateInit2(&_stream, MAX_WBITS + kGzipOnly) != Z_OK) {
            _openFailure = ENOMEM;
        }
    }
    ~GzipFile() { inflateEnd(&_stream); }
    GzipFile(const GzipFile&) = delete;
    GzipFile& operator=(const GzipFile&) = delete;

    /// Returns the next bytes, which are valid until the next call, or none at the end.
    Result<std::string_view> next();

    /// Whether the bytes so far end with as many zeros as the tar format requires.
    [[nodiscard]] bool endsWithMarker() const { return _zeros >= 1024; }

  private:
    [[nodiscard]] Status fill();
    [[nodiscard]] Status skipPadding();
    std::string_view uncompressed();

    FileDescriptor _file;
    int _openFailure;  ///< An `errno` value, or 0.
    std::vector<unsigned char> _input;
    std::vector<unsigned char> _output;
    z_stream _stream{};
    bool _isAtEnd = false;     ///< Of the file.
    bool _memberEnds = false;  ///< Between two members.
    std::uint64_t _size = 0;   ///< Of the file, as far as it is read.
    std::uint64_t _zeros = 0;  ///< At the end of the uncompressed bytes.
};

Status GzipFile::fill() {
    const ssize_t count = read(_file.get(), _input.data(), _input.size());
    if (count < 0) {
        return archiveError(NSFileReadUnknownError,
                            std::string("can't be read: ") + std::strerror(errno));
    }
    _isAtEnd = count == 0;
    _size += static_cast<std::uint64_t>(count);
    _stream.next_in = _input.data();
    _stream.avail_in = static_cast<uInt>(count);
    return std::nullopt;
}

/// Skips zeros after a member, which gzip ignores. Fails if other bytes than a member follow.
Status GzipFile::skipPadding() {
    while (_stream.avail_in > 0 && *_stream.next_in == 0) {
        ++_stream.next_in;
        --_stream.avail_in;
    }
    constexpr unsigned char kMagic = 0x1f;
    if (_stream.avail_in == 0) {
        return std::nullopt;
    }
    _memberEnds = false;
    return *_stream.next_in == kMagic && inflateReset(&_stream) == Z_OK
               ? Status()
               : damage("has other bytes after its end");
}

std::string_view GzipFile::uncompressed() {
    const std::string_view bytes(reinterpret_cast<const char*>(_output.data()),
                                 _output.size() - _stream.avail_out);
    const std::size_t last = bytes.find_last_not_of('\0');
    _zeros = last == bytes.npos ? _zeros + bytes.size() : bytes.size() - last - 1;
    return bytes;
}

Result<std::string_view> GzipFile::next() {
    if (_openFailure != 0) {
        return archiveError(NSFileReadUnknownError,
                            std::string("can't be opened: ") + std::strerror(_openFailure));
    }
    while (true) {
        if (_stream.avail_in == 0) {
            if (auto error = fill()) {
                return error;
            }
        }
        if (_isAtEnd) {
            return _memberEnds ? Result<std::string_view>(std::string_view())
                               : damage(_size == 0 ? "is empty" : "is cut short");
        }
        if (_memberEnds) {
            if (auto error = skipPadding()) {
                return error;
            }
            continue;
        }
        _stream.next_out = _output.data();
        _stream.avail_out = static_cast<uInt>(_output.size());
        const int status = inflate(&_stream, Z_NO_FLUSH);
        _memberEnds = status == Z_STREAM_END;
        if (status != Z_OK && status != Z_STREAM_END && status != Z_BUF_ERROR) {
            return damage(_stream.msg == nullptr ? "is damaged"
                                                 : std::string("is damaged: ") + _stream.msg);
        }
        if (_stream.avail_out < _output.size()) {
            return uncompressed();
        }
    }
}

/// What the read callback of libarchive uses.
struct Source {
    GzipFile file;
    Status failure = {};
};

la_ssize_t readSource(archive* /*reader*/, void* data, const void** bytes) {
    auto& source = *static_cast<Source*>(data);
    const auto piece = source.file.next();
    if (!piece) {
        source.failure = piece.error();
        return -1;
    }
    *bytes = piece->data();
    return static_cast<la_ssize_t>(piece->size());
}

ArchivedKind kindOf(archive_entry* entry) {
    if (archive_entry_hardlink(entry) != nullptr) {
        return ArchivedKind::HardLink;
    }
    switch (archive_entry_filetype(entry)) {
        case AE_IFREG:
            return ArchivedKind::File;
        case AE_IFDIR:
            return ArchivedKind::Folder;
        case AE_IFLNK:
            return ArchivedKind::SymbolicLink;
        default:
            return ArchivedKind::Other;
    }
}

ArchivedItem describe(archive_entry* entry) {
    const char* const path = archive_entry_pathname(entry);
    std::string name = fs::path(path == nullptr ? "" : path).lexically_normal();
    if (name.ends_with('/')) {
        name.pop_back();
    }
    return {.name = std::move(name),
            .kind = kindOf(entry),
            .mode = static_cast<unsigned>(archive_entry_perm(entry)),
            .size = static_cast<std::uint64_t>(std::max<la_int64_t>(archive_entry_size(entry), 0))};
}

Status failureOf(archive* reader, const Source& source) {
    if (source.failure) {
        return source.failure;
    }
    const char* const message = archive_error_string(reader);
    return damage(std::string("is not a complete tar archive: ") +
                  (message == nullptr ? "it is damaged" : message));
}

Status visitContents(archive* reader, const Source& source, const ArchiveVisitor& visitor) {
    while (true) {
        const void* bytes = nullptr;
        std::size_t size = 0;
        la_int64_t offset = 0;
        const int status = archive_read_data_block(reader, &bytes, &size, &offset);
        if (status == ARCHIVE_EOF) {
            return std::nullopt;
        }
        if (status < ARCHIVE_WARN) {
            return failureOf(reader, source);
        }
        if (auto error = visitor.contents({static_cast<const char*>(bytes), size},
                                          static_cast<std::uint64_t>(offset))) {
            return error;
        }
    }
}

Status visitEntries(archive* reader, const Source& source, const ArchiveVisitor& visitor) {
    while (true) {
        archive_entry* entry = nullptr;
        const int status = archive_read_next_header(reader, &entry);
        if (status == ARCHIVE_EOF) {
            return source.failure;
        }
        if (status < ARCHIVE_WARN) {
            return failureOf(reader, source);
        }
        const ArchivedItem item = describe(entry);
        auto error = visitor.item(item);
        if (!error && item.kind == ArchivedKind::File) {
            error = visitContents(reader, source, visitor);
        }
        if (error) {
            return error;
        }
    }
}

}  // namespace

Status readGzipTar(const fs::path& archive, const ArchiveVisitor& visitor) {
    const Utf8Names utf8;
    Source source{.file = GzipFile(archive)};
    const std::unique_ptr<struct archive, Deleter<archive_read_free>> reader(archive_read_new());
    if (!reader) {
        return errorFromErrno(ENOMEM, FileAccess::Read, "The archive could not be read");
    }
    if (archive_read_support_format_tar(reader.get()) != ARCHIVE_OK ||
        archive_read_open(reader.get(), &source, nullptr, readSource, nullptr) != ARCHIVE_OK) {
        return failureOf(reader.get(), source);
    }
    if (auto error = visitEntries(reader.get(), source, visitor)) {
        return error;
    }
    while (true) {
        const auto rest = source.file.next();
        if (!rest) {
            return rest.error();
        }
        if (rest->empty()) {
            return source.file.endsWithMarker() ? Status()
                                                : damage("lacks the end of a tar archive");
        }
    }
}

}  // namespace teravolant::platform
