#include "support/crypto.h"

#include <cstddef>

#include "platform/digest.h"
#include "platform/files.h"

namespace teravolant {

std::optional<std::string> Crypto::MD5HashOfFile(const std::filesystem::path& path) {
    constexpr std::size_t kChunkSize = 4096;
    platform::Digest digest(platform::DigestAlgorithm::Md5);
    const auto failure =
        platform::readInPieces(path, kChunkSize, [&digest](std::string_view chunk) {
            digest.update(chunk);
            return std::optional<platform::Error>();
        });
    const auto raw = digest.finish();
    return failure || !raw ? std::nullopt : std::optional(platform::hexText(raw.value()));
}

}  // namespace teravolant
