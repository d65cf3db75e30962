#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <string>

#include "platform/archives/gzip_tar.h"
#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/system/executable_file.h"
#include "programs/selfcheck.h"

// The check of the client archive.
//
// The check of the client's executable reads its headers only. So a file in memory holds the
// beginning of the executable and has its true size. Some tools move headers to a file's end: if
// the check fails, the archive is read again and the whole executable is kept.
namespace teravolant::selfcheck {
namespace {

namespace fs = std::filesystem;
using platform::ArchivedItem;
using platform::ArchivedKind;
using platform::Status;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience(5);
constexpr const char* kInformation = "teravolant.app/Contents/Info.plist";
constexpr const char* kExecutable = "teravolant.app/Contents/MacOS/teravolant";

Status failure(std::string reason) {
    return platform::Error{.domain = std::string(platform::NSCocoaErrorDomain),
                           .code = platform::NSFileReadCorruptFileError,
                           .localizedDescription = std::move(reason)};
}

/// Reads a client archive and keeps the first bytes of the executable in it.
class ClientArchive {
  public:
    ClientArchive(fs::path path, Clock::time_point end) : _path(std::move(path)), _end(end) {}

    /// Keeps at most `kept` bytes of the executable.
    Status read(std::uint64_t kept);

    /// Fails unless the archive has an Info.plist and a native executable.
    [[nodiscard]] Status check() const;

    [[nodiscard]] bool isTooLate() const { return Clock::now() > _end; }

  private:
    Status takeItem(const ArchivedItem& item);
    [[nodiscard]] Status keep(std::string_view piece, std::uint64_t offset) const;

    fs::path _path;
    Clock::time_point _end;
    std::uint64_t _kept = 0;
    bool _isExecutable = false;  ///< Of the item that is read.
    bool _hasInformation = false;
    ArchivedItem _executable;
    platform::FileDescriptor _contents;
};

Status ClientArchive::read(std::uint64_t kept) {
    _kept = kept;
    return platform::readGzipTar(
        _path, {.item = [this](const ArchivedItem& item) { return takeItem(item); },
                .contents = [this](std::string_view piece,
                                   std::uint64_t offset) { return keep(piece, offset); }});
}

Status ClientArchive::takeItem(const ArchivedItem& item) {
    _hasInformation = _hasInformation || item.name == kInformation;
    _isExecutable = item.name == kExecutable;
    if (!_isExecutable) {
        return std::nullopt;
    }
    _executable = item;
    _contents = platform::FileDescriptor(memfd_create("client", MFD_CLOEXEC));
    return _contents && ftruncate(_contents.get(), static_cast<off_t>(item.size)) == 0
               ? Status()
               : failure("can't be checked: there is no memory for a file");
}

Status ClientArchive::keep(std::string_view piece, std::uint64_t offset) const {
    if (isTooLate()) {
        return failure("can't be read in time");
    }
    if (_isExecutable && offset < _kept) {
        piece = piece.substr(0, _kept - offset);
        (void)!pwrite(_contents.get(), piece.data(), piece.size(), static_cast<off_t>(offset));
    }
    return std::nullopt;
}

Status ClientArchive::check() const {
    if (!_hasInformation) {
        return failure(std::string("has no ") + kInformation);
    }
    const std::string named = std::string("has a ") + kExecutable + " that ";
    if (_executable.name.empty()) {
        return failure(std::string("has no ") + kExecutable);
    }
    if (_executable.kind != ArchivedKind::File) {
        return failure(named + "is not a regular file");
    }
    if ((_executable.mode & 0100U) == 0) {
        return failure(named + "is not executable for its owner");
    }
    const fs::path contents = "/proc/self/fd/" + std::to_string(_contents.get());
    const auto format = platform::checkedFormatOf(contents);
    if (!format) {
        // The text begins with the path.
        const std::string& text = format.error().localizedDescription;
        const std::size_t begin = platform::quoted(contents).size() + 1;
        return failure(named + text.substr(std::min(begin, text.size())));
    }
    return *format == platform::FileFormat::Elf ? Status()
                                                : failure(named + "is not a native program");
}

}  // namespace

Outcome checkClientArchive(const platform::Bundle& bundle) {
    constexpr std::uint64_t kUsualHeaders = std::uint64_t{64} * 1024;
    ClientArchive archive(bundle.bundlePath() / "Contents" / "Resources" / "client.tar.gz",
                          Clock::now() + kPatience);
    auto error = archive.read(kUsualHeaders);
    if (!error && archive.check()) {
        error = archive.read(std::numeric_limits<std::uint64_t>::max());
    }
    error = error ? std::move(error) : archive.check();
    if (error && archive.isTooLate()) {
        return note("client.tar.gz: not read to its end in " + std::to_string(kPatience.count()) +
                    " seconds");
    }
    return error ? failed("client.tar.gz: it " + error->localizedDescription)
                 : ok("client.tar.gz: complete, with a program for this machine");
}

}  // namespace teravolant::selfcheck
