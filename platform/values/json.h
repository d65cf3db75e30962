#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/core/result.h"
#include "platform/values/value.h"

namespace teravolant::platform {

/// Where in the bytes a JSON error was found: the number of bytes read up to there.
inline constexpr const char* NSJSONSerializationErrorIndex = "NSJSONSerializationErrorIndex";

/// Reads a JSON text in UTF-8 whose top level is an object or an array. Of two members of the same
/// name the later one holds.
///
/// Fails with `NSPropertyListReadCorruptError` for anything else, and for nesting deeper than
/// `kDeepestJson`.
Result<Value> parseJson(std::string_view bytes);

inline constexpr std::size_t kDeepestJson = 512;

/// The compact form, in UTF-8, members in the order of their names.
///
/// Fails with `NSPropertyListWriteInvalidError` for what the format has no form for: a text that is
/// not UTF-8, a number that is not finite, and nesting deeper than `kDeepestJson`.
Result<std::string> serialiseJson(const Value& value);

}  // namespace teravolant::platform
