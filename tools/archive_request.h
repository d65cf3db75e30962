#pragma once

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>

#include "platform/core/result.h"

// Requests to a server, over the same transport as an installed bundle's.
namespace teravolant::release {

/// Returns the feed document at `url`. Fails for status 204, which means "no update".
platform::Result<std::string> requestFeed(const std::string& url, const std::stop_token& stop);

/// Returns the size of the archive that the server states, or nothing if it states none. Requests
/// one byte and reads no body.
platform::Result<std::optional<std::uint64_t>> requestSize(const std::string& url,
                                                           const std::stop_token& stop);

/// What was downloaded or read of an archive.
struct ArchiveBytes {
    std::uint64_t size = 0;
    std::string digest;  ///< BLAKE2b-256.
};

/// Downloads the archive, and keeps nothing of it but the digest. Fails as soon as there are more
/// than `most` bytes.
platform::Result<ArchiveBytes> downloadBytes(const std::string& url, std::uint64_t most,
                                             const std::stop_token& stop);

/// Reads the archive in a file.
platform::Result<ArchiveBytes> readBytes(const std::string& file, const std::stop_token& stop);

}  // namespace teravolant::release
