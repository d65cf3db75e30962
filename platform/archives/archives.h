#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>

#include "platform/core/result.h"

// Archives of folders. Operations block and may be called from any thread. Failures are errors of
// `NSCocoaErrorDomain` that name the entry and the reason.
namespace teravolant::platform {

/// What an archive may ask for. Checked while unpacking: nothing beyond a limit is written.
struct UnpackLimits {
    std::uint64_t items = 100'000;  ///< Made in the folder, folders on the way to them included.
    std::uint64_t bytes = std::uint64_t{4} << 30U;  ///< Of all files together, holes included.
    std::size_t pathLength = 1024;                  ///< Bytes, of names and of link targets.
    std::size_t pathDepth = 64;                     ///< Components.
};

/// Unpacks a zip (PKWARE APPNOTE 6.3) or tar archive (POSIX.1-2001 pax, ustar, GNU; plain or
/// compressed with gzip, xz, zstd or bzip2) into an existing empty folder.
///
/// Whatever the archive holds, nothing is written outside the folder. Regular files, folders,
/// symbolic links and hard links are unpacked with their permission bits and modification times.
/// The whole archive is refused for: a name that is absolute, holds `..`, or is not UTF-8; two
/// entries of one name; an entry below a file or a link; a symbolic link that is absolute, climbs
/// out of the folder, or has `..` after another component; a hard link to anything but a file that
/// was unpacked before; a device, pipe or socket; a set-user-id, set-group-id or sticky bit; damage
/// or a missing end. Extended attributes, access control lists and owners are left out.
///
/// Memory does not grow with the archive but for one small record per folder, and for zip one per
/// entry. After a failure the folder holds a part of the archive, which the caller removes; every
/// folder in it is then still writable for its owner.
[[nodiscard]] Status unpackArchive(const std::filesystem::path& archive,
                                   const std::filesystem::path& folder,
                                   const UnpackLimits& limits = {});

/// Is told how many of the bytes of all files are packed. Called on the packing thread.
using PackProgress = std::function<void(std::uint64_t done, std::uint64_t all)>;

/// Packs the folder, under its own name as the archive's one top entry, into a `.tar.zst`.
///
/// The same names, contents, permission bits and links, and the same modification seconds of files
/// (by which an installed launch agent is told from a newer one), give the same archive, byte for
/// byte: the entries are sorted, and carry no owner. Refuses what `unpackArchive` would refuse, and
/// links that lead out of the packed folder. Ends soon after a stop is asked for. A file at
/// `archive` is replaced in one step once the new one is flushed; a failure leaves it as it was and
/// nothing else behind. One caller at a time for one path.
[[nodiscard]] Status packFolder(const std::filesystem::path& folder,
                                const std::filesystem::path& archive,
                                const PackProgress& progress = {},
                                const std::stop_token& stop = {});

}  // namespace teravolant::platform
