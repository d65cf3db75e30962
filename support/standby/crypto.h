#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace teravolant {

/// Digests of files, to tell versions of a file apart. MD5 gives no protection against forgery.
class Crypto {
  public:
    /// Returns the MD5 digest (RFC 1321) of the file's contents as 32 lower-case hexadecimal
    /// digits.
    ///
    /// Returns nothing if `path` is not a regular file, can't be read to its end, or if the
    /// system's policy forbids the algorithm. Streams the file in constant memory. Blocks; may be
    /// called from any thread.
    [[nodiscard]] static std::optional<std::string> MD5HashOfFile(
        const std::filesystem::path& path);
};

}  // namespace teravolant
