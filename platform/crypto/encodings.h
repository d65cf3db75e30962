#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace teravolant::platform {

/// Returns the address of the bytes in the type that cryptographic libraries take.
inline const unsigned char* octets(std::string_view bytes) {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

/// Returns two lower-case hexadecimal digits per byte.
[[nodiscard]] std::string hexText(std::string_view bytes);

/// Returns base64 with padding and without line breaks (RFC 4648, section 4).
[[nodiscard]] std::string base64Encoded(std::string_view bytes);

/// Returns the decoded bytes, or nothing if the text differs from what `base64Encoded` returns for
/// them. Two different texts never decode to the same bytes.
[[nodiscard]] std::optional<std::string> base64Decoded(std::string_view text);

}  // namespace teravolant::platform
