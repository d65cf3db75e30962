#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace teravolant::platform {

/// Two lower-case hexadecimal digits for each byte.
[[nodiscard]] std::string hexText(std::string_view bytes);

/// Base64 with padding and without line breaks (RFC 4648, section 4).
[[nodiscard]] std::string base64Encoded(std::string_view bytes);

/// The bytes that the text stands for; nothing unless it is exactly what `base64Encoded` makes of
/// them, so that two different texts never stand for the same bytes.
[[nodiscard]] std::optional<std::string> base64Decoded(std::string_view text);

}  // namespace teravolant::platform
