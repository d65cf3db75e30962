#include "platform/crypto/encodings.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <openssl/evp.h>

namespace teravolant::platform {
namespace {

const unsigned char* octets(std::string_view bytes) {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

unsigned char* octets(std::string& bytes) { return reinterpret_cast<unsigned char*>(bytes.data()); }

}  // namespace

std::string hexText(std::string_view bytes) {
    constexpr std::string_view kHexDigits = "0123456789abcdef";
    std::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<std::uint8_t>(character);
        text += {kHexDigits[byte >> 4U], kHexDigits[byte & 0xFU]};
    }
    return text;
}

std::string base64Encoded(std::string_view bytes) {
    constexpr std::size_t kPiece = std::size_t{3} << 20U;  // whole groups of three bytes
    std::string text;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(kPiece, bytes.size()))) {
        const std::string_view piece = bytes.substr(0, kPiece);
        std::string encoded((piece.size() + 2) / 3 * 4 + 1, '\0');
        EVP_EncodeBlock(octets(encoded), octets(piece), static_cast<int>(piece.size()));
        encoded.pop_back();
        text += encoded;
    }
    return text;
}

std::optional<std::string> base64Decoded(std::string_view text) {
    constexpr std::size_t kPiece = std::size_t{4} << 20U;  // whole groups of four characters
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    std::string bytes;
    for (std::string_view rest = text; !rest.empty();
         rest.remove_prefix(std::min(kPiece, rest.size()))) {
        const std::string_view piece = rest.substr(0, kPiece);
        std::string decoded(piece.size() / 4 * 3, '\0');
        const int length =
            EVP_DecodeBlock(octets(decoded), octets(piece), static_cast<int>(piece.size()));
        if (length < 0) {
            return std::nullopt;
        }
        bytes.append(decoded, 0, static_cast<std::size_t>(length));
    }
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    bytes.erase(bytes.size() - std::min(padding, bytes.size()));
    // The decoder ignores white space around the text and non-zero bits before the padding.
    if (base64Encoded(bytes) != text) {
        return std::nullopt;
    }
    return bytes;
}

}  // namespace teravolant::platform
