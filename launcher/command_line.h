#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>

namespace teravolant {

/// The value of a KEY=VALUE argument: a text, an integer, or a boolean from YES or NO.
using ArgumentValue = std::variant<std::string, std::int64_t, bool>;

/// Keys are compared exactly; of several arguments with one key the last holds.
using ArgumentDictionary = std::map<std::string, ArgumentValue, std::less<>>;

/// Whether one of the arguments, the program's own path included, is exactly the option.
[[nodiscard]] bool hasOption(int argc, const char* const* argv, std::string_view option);

/// Reads the arguments behind the program's path. One without "=" is a key with the empty text; one
/// with more than one "=", or that is not UTF-8, is logged and skipped.
[[nodiscard]] ArgumentDictionary parseArguments(int argc, const char* const* argv);

/// The value as a log line shows it; a boolean prints as 1 or 0.
[[nodiscard]] std::string printedForm(const ArgumentValue& value);

}  // namespace teravolant
