#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>

#include "platform/core/file_descriptor.h"
#include "platform/core/result.h"

// Archives of folders. All operations block and may be called from any thread. They return failures
// as errors of `NSCocoaErrorDomain` that name the entry and the reason.
namespace teravolant::platform {

/// Limits on the contents of an archive. Enforced while unpacking: nothing beyond them is written.
struct UnpackLimits {
    std::uint64_t items = 100'000;                  ///< Includes parent folders without an entry.
    std::uint64_t bytes = std::uint64_t{4} << 30U;  ///< Sum over all files, including holes.
    std::size_t pathLength = 1024;                  ///< Bytes of a name or a link target.
    std::size_t pathDepth = 64;                     ///< Components.
};

/// Unpacks a tar archive (POSIX.1-2001 pax, ustar, GNU), plain or compressed with zstd (RFC 8878),
/// from the descriptor `archive` into an existing empty folder. Needs no seekable archive.
///
/// No archive can cause a write outside the folder. Regular files, folders, symbolic links and hard
/// links are unpacked with their modification times and permission bits, without those to write for
/// group and others. Refuses the whole archive for: a name that is absolute, contains `..`, or is
/// not UTF-8; two entries with one name; an entry below a file or a link; a symbolic link that is
/// absolute, leaves the folder, or has `..` after another component; a hard link whose target is
/// not an earlier regular file; a device, pipe or socket; a set-user-id, set-group-id or sticky
/// bit; damage or a missing end. Ignores extended attributes, access control lists and owners.
///
/// The caller holds a `Utf8Names`. Memory grows by one small record per folder. After a failure the
/// folder contains a part of the archive, which the caller removes; all of its folders are then
/// still writable for their owner.
[[nodiscard]] Status unpackArchive(int archive, FileDescriptor folder,
                                   const UnpackLimits& limits = {});

/// Receives the packed bytes and the total bytes of all files. Called on the packing thread.
using PackProgress = std::function<void(std::uint64_t done, std::uint64_t all)>;

/// Packs the folder into a `.tar.zst` whose only top-level entry is the folder itself.
///
/// The archive is reproducible byte for byte: it depends only on names, contents, links, which
/// files their owner may execute, and the modification seconds of files (by which an installed
/// launch agent is compared with a newer one). Folders and executable files get the mode 0755,
/// other files 0644. The entries are sorted and have no owner. Refuses what `unpackArchive` would
/// refuse, and links that lead out of the packed folder. Fails with `NSUserCancelledError` soon
/// after a stop request. Atomically and durably replaces a file at `archive`; a failure leaves it
/// unchanged and removes the temporary file. At most one caller at a time per path.
[[nodiscard]] Status packFolder(const std::filesystem::path& folder,
                                const std::filesystem::path& archive,
                                const PackProgress& progress = {},
                                const std::stop_token& stop = {});

}  // namespace teravolant::platform
