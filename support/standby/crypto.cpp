#include "support/standby/crypto.h"

#include <cstddef>

#include "platform/crypto/encodings.h"
#include "platform/crypto/md5.h"
#include "platform/files/files.h"

namespace teravolant {

std::optional<std::string> Crypto::MD5HashOfFile(const std::filesystem::path& path) {
    constexpr std::size_t kChunkSize = 4096;
    platform::Md5 digest;
    const auto error = platform::readInPieces(path, kChunkSize, [&digest](std::string_view chunk) {
        digest.update(chunk);
        return platform::Status();
    });
    const auto raw = digest.finish();
    return error || !raw ? std::nullopt : std::optional(platform::hexText(*raw));
}

}  // namespace teravolant
