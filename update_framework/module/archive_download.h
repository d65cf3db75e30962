#pragma once

#include <filesystem>

#include "platform/core/result.h"
#include "update_framework/sqrl_update.h"

namespace teravolant::platform {

/// Downloads the offered archive to the cache folder and returns its path, once its size and digest
/// are the offered ones. The offer must have a size and a digest. Blocks.
///
/// Uses constant memory and never writes more than the offered size. Resumes the download of an
/// earlier call if the server still has the same content; a failed transfer leaves its part for the
/// next call. Removes bytes that can't become the offered archive.
Result<std::filesystem::path> downloadArchive(const SQRLUpdate& offer,
                                              const std::filesystem::path& cacheFolder);

/// Removes the files of `downloadArchive` from the folder.
void removeDownloads(const std::filesystem::path& cacheFolder);

}  // namespace teravolant::platform
