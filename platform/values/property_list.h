#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "platform/core/result.h"
#include "platform/values/value.h"

namespace teravolant::platform {

/// Reads a property list in its XML or its binary form.
///
/// Fails with `NSFileReadCorruptFileError` for anything else, for a value that is not of one of the
/// types above, for a text that is not UTF-8, for nesting deeper than `kDeepestPropertyList`, and
/// for a binary one larger than 256 KiB. Integers beyond 64 bits with a sign, dates outside of 1933
/// to 2068, fractions of a second, and what stands behind a zero character in a text are not kept.
Result<Value> parsePropertyList(std::string_view bytes);

inline constexpr int kDeepestPropertyList = 64;

/// The dictionary that the file holds at its top. Fails with `NSFileReadCorruptFileError` where
/// `parsePropertyList` does or the top is something else, and otherwise as `contentsOfFile`.
Result<Value::Dictionary> dictionaryInFile(const std::filesystem::path& file);

/// The XML form, UTF-8.
[[nodiscard]] std::string serialisePropertyList(const Value& value);

}  // namespace teravolant::platform
