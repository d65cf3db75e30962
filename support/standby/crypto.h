#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace teravolant {

/// Digests of files, to tell versions of them apart; they prove nothing about who made them.
class Crypto {
  public:
    /// The MD5 digest (RFC 1321) of the file's contents as 32 lower-case hexadecimal digits.
    ///
    /// Nothing when there is no regular file that can be read to its end, or when this machine's
    /// policy forbids the algorithm. Streams the file, so that memory stays flat. May run on any
    /// thread, and blocks it.
    [[nodiscard]] static std::optional<std::string> MD5HashOfFile(
        const std::filesystem::path& path);
};

}  // namespace teravolant
