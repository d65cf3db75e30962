#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace teravolant::platform {

/// Stands for a missing value in printed texts.
inline constexpr const char* kMissingValueMark = "(null)";

/// Whether the bytes are well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates).
[[nodiscard]] bool isValidUtf8(std::string_view bytes);

/// Whether every byte is 7-bit ASCII.
[[nodiscard]] bool isAscii(std::string_view bytes);

/// Returns the text between typographic quotation marks, for messages.
[[nodiscard]] std::string quoted(const std::string& text);

/// Returns untrusted text for a message: control characters and bytes that are not UTF-8 as \xNN,
/// truncated after about `most` bytes.
[[nodiscard]] std::string escaped(std::string_view text, std::size_t most = 500);

/// Changes ASCII letters to lower case.
[[nodiscard]] std::string lowerCase(std::string_view text);

/// Compares texts without regard to the case of ASCII letters.
[[nodiscard]] bool equalIgnoringCase(std::string_view left, std::string_view right);

/// Returns the format with each "%@" replaced by the next value and each "%N$@" by the Nth value,
/// for N from 1 to 9. A placeholder without a value stays unchanged.
[[nodiscard]] std::string filled(std::string_view format,
                                 std::initializer_list<std::string_view> values);

}  // namespace teravolant::platform
