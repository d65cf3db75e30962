#include "platform/system/executable_file.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"

// How it works: the kernel and the loader map the segments that the program header table lists. A
// file that was cut short, or that a download filled only in part, ends before one of them, or
// before the section header table, which linkers write last. Every offset and count in the headers
// may be wrong, so no sum or product of them is formed before it is known to be within the file.
namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

using FileHeader = ElfW(Ehdr);
using ProgramHeader = ElfW(Phdr);
using SectionHeader = ElfW(Shdr);

#if defined(__x86_64__)
constexpr int kMachine = EM_X86_64;
#elif defined(__aarch64__)
constexpr int kMachine = EM_AARCH64;
#else
#error "Add the machine of this build, as elf.h names it."
#endif
constexpr int kClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
constexpr int kByteOrder = std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;

constexpr std::string_view kElfMagic(ELFMAG, SELFMAG);
constexpr std::string_view kScriptMagic = "#!";

struct OpenFile {
    fs::path path;
    FileDescriptor descriptor;
    std::uint64_t size = 0;
};

Status failure(CocoaErrorCode code, const fs::path& path, const std::string& reason) {
    return Error{.domain = std::string(NSCocoaErrorDomain),
                 .code = code,
                 .localizedDescription = quoted(path.native()) + " " + reason + "."};
}

Status truncated(const OpenFile& file) {
    return failure(NSExecutableNotLoadableError, file.path, "is truncated");
}

Status damaged(const OpenFile& file) {
    return failure(NSExecutableNotLoadableError, file.path, "is damaged");
}

Result<OpenFile> openFile(const fs::path& path) {
    // Without O_NONBLOCK, opening a named pipe would wait for a writer.
    FileDescriptor descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status {};
    if (!descriptor || fstat(descriptor.get(), &status) != 0) {
        return readError(errno, path.native());
    }
    if (!S_ISREG(status.st_mode)) {
        return failure(NSFileReadUnknownError, path, "is not a regular file");
    }
    return OpenFile{path, std::move(descriptor), static_cast<std::uint64_t>(status.st_size)};
}

/// Whether `count` entries of `size` bytes at `offset` are within the file.
bool contains(const OpenFile& file, std::uint64_t offset, std::uint64_t count,
              std::uint64_t size = 1) {
    return count == 0 ||
           (offset <= file.size && (size == 0 || count <= (file.size - offset) / size));
}

/// Reads all the bytes. Fails with "truncated" if the file ends before them. `offset` must be
/// within the file.
Status readBytes(const OpenFile& file, void* bytes, std::size_t count, std::uint64_t offset) {
    auto* next = static_cast<char*>(bytes);
    while (count > 0) {
        const ssize_t got = pread(file.descriptor.get(), next, count, static_cast<off_t>(offset));
        if (got < 0 && errno != EINTR) {
            return readError(errno, file.path.native());
        }
        if (got == 0) {
            return truncated(file);
        }
        const auto progress = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
        next += progress;
        offset += progress;
        count -= progress;
    }
    return std::nullopt;
}

/// Reads the first bytes of the file, at most `count`.
Result<std::string> beginning(const OpenFile& file, std::size_t count) {
    std::string bytes(std::min<std::uint64_t>(count, file.size), '\0');
    if (auto error = readBytes(file, bytes.data(), bytes.size(), 0)) {
        return error;
    }
    return bytes;
}

Result<FileHeader> fileHeader(const OpenFile& file) {
    FileHeader header{};
    const auto magic = beginning(file, kElfMagic.size());
    if (!magic) {
        return magic.error();
    }
    if (magic->empty()) {
        return failure(NSExecutableNotLoadableError, file.path, "is empty");
    }
    const auto foreign = [&file] {
        return failure(NSExecutableArchitectureMismatchError, file.path,
                       "is not a program for this machine");
    };
    if (!kElfMagic.starts_with(*magic)) {
        return foreign();
    }
    if (auto error = readBytes(file, &header, sizeof header, 0)) {
        return error;
    }
    if (header.e_ident[EI_CLASS] != kClass || header.e_ident[EI_DATA] != kByteOrder ||
        header.e_machine != kMachine) {
        return foreign();
    }
    if (header.e_type != ET_EXEC && header.e_type != ET_DYN) {
        return failure(NSExecutableNotLoadableError, file.path,
                       "is neither a program nor a shared library");
    }
    if (header.e_phnum == 0 || header.e_phentsize != sizeof(ProgramHeader)) {
        return damaged(file);
    }
    return header;
}

Status checkSections(const OpenFile& file, const FileHeader& header) {
    if (header.e_shoff == 0) {
        return std::nullopt;
    }
    std::uint64_t count = header.e_shnum;
    if (count == 0) {
        // A count of 0xff00 or more does not fit into the file header: the first section has it.
        SectionHeader first{};
        if (!contains(file, header.e_shoff, sizeof first)) {
            return truncated(file);
        }
        if (auto error = readBytes(file, &first, sizeof first, header.e_shoff)) {
            return error;
        }
        count = first.sh_size;
    }
    return contains(file, header.e_shoff, count, header.e_shentsize) ? Status() : truncated(file);
}

Result<std::vector<ProgramHeader>> programHeaders(const OpenFile& file, const FileHeader& header) {
    if (!contains(file, header.e_phoff, header.e_phnum, sizeof(ProgramHeader))) {
        return truncated(file);
    }
    std::vector<ProgramHeader> segments(header.e_phnum);
    if (auto error = readBytes(file, segments.data(), segments.size() * sizeof(ProgramHeader),
                               header.e_phoff)) {
        return error;
    }
    return segments;
}

/// Checks the whole file and returns its program headers.
Result<std::vector<ProgramHeader>> checkedSegments(const OpenFile& file) {
    const auto header = fileHeader(file);
    if (!header) {
        return header.error();
    }
    auto segments = programHeaders(file, *header);
    if (!segments) {
        return segments.error();
    }
    if (auto error = checkSections(file, *header)) {
        return error;
    }
    bool loadsAny = false;
    for (const ProgramHeader& segment : *segments) {
        if (segment.p_type == PT_LOAD) {
            loadsAny = true;
            if (!contains(file, segment.p_offset, segment.p_filesz)) {
                return truncated(file);
            }
        }
    }
    if (!loadsAny) {
        return damaged(file);
    }
    return segments;
}

/// Checks that the program which the kernel starts in place of this one, the dynamic linker,
/// exists.
Status checkInterpreter(const OpenFile& file, const std::vector<ProgramHeader>& segments) {
    const auto segment =
        std::ranges::find(segments, static_cast<ElfW(Word)>(PT_INTERP), &ProgramHeader::p_type);
    if (segment == segments.end()) {
        return std::nullopt;
    }
    if (segment->p_filesz > PATH_MAX) {
        return damaged(file);
    }
    if (!contains(file, segment->p_offset, segment->p_filesz)) {
        return truncated(file);
    }
    std::string name(segment->p_filesz, '\0');
    if (auto error = readBytes(file, name.data(), name.size(), segment->p_offset)) {
        return error;
    }
    name.resize(std::min(name.find('\0'), name.size()));
    if (access(name.c_str(), F_OK) == 0) {
        return std::nullopt;
    }
    return failure(NSExecutableNotLoadableError, file.path,
                   "needs " + platform::quoted(name) + ", which does not exist");
}

}  // namespace

Status checkExecutable(const fs::path& path) {
    struct statvfs fileSystem {};
    if (statvfs(path.c_str(), &fileSystem) != 0) {
        return readError(errno, path.native());
    }
    // access(2) fails for this reason too, with an error number that names no reason.
    if ((fileSystem.f_flag & ST_NOEXEC) != 0) {
        return failure(NSExecutableNotLoadableError, path,
                       "is on a file system that is mounted with noexec");
    }
    if (access(path.c_str(), X_OK) != 0) {
        return errorFromErrno(errno, FileAccess::Read,
                              quoted(path.native()) + " could not be executed");
    }
    const auto file = openFile(path);
    if (!file) {
        const bool hidden = file.error().code == NSFileReadNoPermissionError;
        return hidden ? Status() : Status(file.error());
    }
    const auto start = beginning(*file, kScriptMagic.size());
    if (start && *start == kScriptMagic) {
        return std::nullopt;
    }
    const auto segments = checkedSegments(*file);
    return segments ? checkInterpreter(*file, *segments) : Status(segments.error());
}

Result<FileFormat> checkedFormatOf(const fs::path& path) {
    const auto file = openFile(path);
    if (!file) {
        return file.error();
    }
    const auto start = beginning(*file, kElfMagic.size());
    if (!start) {
        return start.error();
    }
    if (*start != kElfMagic) {
        return start->starts_with(kScriptMagic) ? FileFormat::Script : FileFormat::Other;
    }
    const auto segments = checkedSegments(*file);
    auto error = segments ? checkInterpreter(*file, *segments) : Status(segments.error());
    return error ? Result<FileFormat>(std::move(error)) : FileFormat::Elf;
}

}  // namespace teravolant::platform
