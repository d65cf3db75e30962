#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/core/result.h"
#include "platform/values/value.h"

namespace teravolant::platform {

/// The deepest nesting of arrays and dictionaries that can be read.
inline constexpr std::size_t kDeepestPropertyList = 64;

/// The largest property list that can be read, in bytes.
inline constexpr std::size_t kLargestPropertyList = std::size_t{16} << 20U;

/// Reads a property list in its XML form: UTF-8, or UTF-16, ISO-8859-1 or ASCII as declared. Texts
/// are returned as UTF-8. The <plist> element around the value may be missing.
///
/// - An integer is decimal, or hexadecimal after "0x", and fits a signed 64-bit integer.
/// - A date has the form 2001-02-03T04:05:06Z, with a year from 0001 to 9999.
/// - If a dictionary holds a key twice, the last value wins.
///
/// Fails with `NSFileReadCorruptFileError` for everything else, and for a larger or deeper property
/// list than the limits above. The description names the fault and its line. The binary form is not
/// supported: `NSPropertyListReadUnknownVersionError`, so that no caller takes a sound file for a
/// damaged one. A document type is never loaded and must not have an internal subset, so that the
/// only entities are the five that XML predefines.
Result<Value> parsePropertyList(std::string_view bytes);

/// Returns the dictionary that is the value of the property list in `file`. Fails
/// like `contentsOfFile` and `parsePropertyList`, and with `NSFileReadCorruptFileError` if the
/// value has another type.
Result<Value::Dictionary> dictionaryInFile(const std::filesystem::path& file);

/// Returns the XML form, in UTF-8. The same value always has the same form.
///
/// `parsePropertyList` reads it as an equal value, with three exceptions: it lacks what XML 1.0
/// cannot hold (bytes that are not UTF-8, control characters other than tab, LF and CR, U+FFFE and
/// U+FFFF); a date outside of the years 0001 to 9999 becomes the first or the last second of them;
/// a null value is left out of a dictionary and otherwise becomes an empty one.
[[nodiscard]] std::string serialisePropertyList(const Value& value);

}  // namespace teravolant::platform
