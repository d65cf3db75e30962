#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/core/file_descriptor.h"
#include "platform/core/result.h"
#include "platform/files/free_space.h"
#include "update_framework/update_cycle.h"

namespace teravolant::platform {

/// A file that an offer names.
struct OfferedFile {
    std::string version;  ///< Of the offered bundle.
    std::string url;
    std::uint64_t size = 0;  ///< Bytes.
    std::string digest;      ///< BLAKE2b-256, lower-case hexadecimal digits.
};

/// A complete archive whose size and digest were the offered ones.
struct DownloadedArchive {
    FileDescriptor file;        ///< Open for reading and writing.
    std::uint64_t fetched = 0;  ///< Bytes that this cycle received.
};

/// Downloads the offered archive to the cache folder. Blocks. Requests nothing unless the disk has
/// room for the archive and `otherNeeds`.
///
/// Uses constant memory and never writes more than the offered size. Resumes the download of an
/// earlier cycle, and of an attempt that broke off, if the server still has the same content. A
/// failed transfer leaves its part for the next cycle. Fails with `SQRLUpdaterErrorRefusedArchive`
/// if the server's bytes are not the offered ones, and removes them.
Result<DownloadedArchive> downloadArchive(const UpdateCycle& cycle, const OfferedFile& archive,
                                          const std::vector<NeededSpace>& otherNeeds);

/// Removes the files of `downloadArchive` from the folder.
void removeDownloads(const std::filesystem::path& cacheFolder);

/// Returns the version that these files belong to. Empty if there are none.
[[nodiscard]] std::string downloadedVersion(const std::filesystem::path& cacheFolder);

}  // namespace teravolant::platform
