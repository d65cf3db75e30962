#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "platform/core/result.h"

namespace teravolant::platform {

enum class ArchivedKind : std::uint8_t { File, Folder, SymbolicLink, HardLink, Other };

/// An entry of an archive.
struct ArchivedItem {
    std::string name;  ///< Without "." components and without a slash at its end.
    ArchivedKind kind = ArchivedKind::Other;
    unsigned mode = 0;       ///< Permission bits.
    std::uint64_t size = 0;  ///< Bytes of a file.
};

/// The callbacks for the contents of an archive. An error that one of them returns ends the reading
/// and is returned.
struct ArchiveVisitor {
    /// Called for each entry, in the archive's order.
    std::function<Status(const ArchivedItem& item)> item;
    /// Called with each piece of the last item's contents, in order, if it is a file. Holes are
    /// left out. `offset` is the position of the piece in the file, in bytes.
    std::function<Status(std::string_view piece, std::uint64_t offset)> contents;
};

/// Reads a tar archive that is compressed with gzip (RFC 1952) to its very end, and verifies its
/// checksum, its length and the end marker of the tar format. Unpacks nothing. Its use of memory
/// does not depend on the archive's size. Blocks; may be called from any thread.
///
/// The error's text ends a sentence that begins with the archive.
[[nodiscard]] Status readGzipTar(const std::filesystem::path& archive,
                                 const ArchiveVisitor& visitor);

}  // namespace teravolant::platform
