#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace teravolant::platform {

/// What a printed text shows in the place of a value that is missing.
inline constexpr const char* kMissingValueMark = "(null)";

/// Whether the bytes are well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates).
[[nodiscard]] bool isValidUtf8(std::string_view bytes);

/// Whether every byte is 7-bit ASCII.
[[nodiscard]] bool isAscii(std::string_view bytes);

/// Returns the text between typographic quotation marks, for messages.
[[nodiscard]] std::string quoted(const std::string& text);

/// Compares texts, taking the ASCII letters of both cases as equal.
[[nodiscard]] bool equalIgnoringCase(std::string_view left, std::string_view right);

/// The format with each "%@" replaced by the next value and each "%1$@" by the value of that
/// number. A mark without a value stays as it is.
[[nodiscard]] std::string filled(std::string_view format,
                                 std::initializer_list<std::string_view> values);

}  // namespace teravolant::platform
