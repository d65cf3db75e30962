#pragma once

#include <chrono>
#include <filesystem>

#include "platform/core/result.h"
#include "update_framework/archive_download.h"

namespace teravolant::platform {

/// Unpacks the archive into the existing empty `folder` with the confined program `unpack`. Blocks.
///
/// The caller verifies the tree: the program is not trusted. Fails with the error of the program
/// (`kProgramErrorDomain`), or with its message about the archive. A program that neither reads nor
/// ends within `patience` is killed.
[[nodiscard]] Status unpackDownloadedArchive(const DownloadedArchive& archive,
                                             const std::filesystem::path& folder,
                                             std::chrono::milliseconds patience);

/// Whether the same archive would probably fail again: it is damaged, contains what must not be
/// unpacked, or crashed the program.
[[nodiscard]] bool isFaultOfArchive(const Error& error);

}  // namespace teravolant::platform
