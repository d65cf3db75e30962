#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>

namespace teravolant {

/// The value of a KEY=VALUE argument: a text, an integer, or a boolean for YES or NO.
using ArgumentValue = std::variant<std::string, std::int64_t, bool>;

/// Keys are case-sensitive. The last of several arguments with the same key wins.
using ArgumentDictionary = std::map<std::string, ArgumentValue, std::less<>>;

/// Whether one of the arguments, including the program's own path, equals the option.
[[nodiscard]] bool hasOption(int argc, const char* const* argv, std::string_view option);

/// Reads the arguments after the program's path. An argument without "=" is a key with the empty
/// text as its value. Logs and skips arguments with more than one "=" and those that are not valid
/// UTF-8.
[[nodiscard]] ArgumentDictionary parseArguments(int argc, const char* const* argv);

/// Returns the value for a log line; a boolean prints as 1 or 0.
[[nodiscard]] std::string printedForm(const ArgumentValue& value);

}  // namespace teravolant
