#pragma once

#include <filesystem>

#include "platform/core/result.h"
#include "update_framework/sqrl_update.h"

namespace teravolant::platform {

/// Brings the offered archive, which must have a size and a digest, into the cache folder and
/// answers its path once every byte is there and the digest is the offered one.
///
/// Streams: memory does not depend on the size, and never more than the offered size is written.
/// What an earlier call left is used: a whole archive as it is, a part as the beginning of this
/// download if the server still has the same content. A failed transfer leaves its part for the
/// next call; bytes that can't become the offered archive are removed.
Result<std::filesystem::path> downloadArchive(const SQRLUpdate& offer,
                                              const std::filesystem::path& cacheFolder);

/// Removes what `downloadArchive` left in the folder, whole or in part.
void removeDownloads(const std::filesystem::path& cacheFolder);

}  // namespace teravolant::platform
