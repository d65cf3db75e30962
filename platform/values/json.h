#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/core/result.h"
#include "platform/values/value.h"

namespace teravolant::platform {

/// The user information key for the position of a JSON error: the number of bytes read before it.
inline constexpr const char* NSJSONSerializationErrorIndex = "NSJSONSerializationErrorIndex";

/// Parses a JSON text (RFC 8259) in UTF-8 whose top level is an object or an array. The last of
/// several members with the same name wins. An integer beyond 64 bits becomes a real number.
///
/// Fails with `NSPropertyListReadCorruptError` for any other text and for nesting deeper than
/// `kDeepestJson`.
Result<Value> parseJson(std::string_view bytes);

inline constexpr std::size_t kDeepestJson = 512;

/// Returns the compact form in UTF-8, with members in the order of their names.
///
/// Fails with `NSPropertyListWriteInvalidError` for a string that is not UTF-8, a number that is
/// not finite, a date or data, and nesting deeper than `kDeepestJson`.
Result<std::string> serialiseJson(const Value& value);

}  // namespace teravolant::platform
