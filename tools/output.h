#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"
#include "platform/values/value.h"

namespace teravolant::release {

/// Returns an error with this message.
[[nodiscard]] platform::Status refused(std::string reason);

/// Returns the error of a command that received a stop request.
[[nodiscard]] platform::Status cancelled();

/// Returns an error if writing the file `output` would replace one of the inputs, write into one of
/// them, or replace an item that is not a regular file, such as a device.
[[nodiscard]] platform::Status refusalOfOutput(const std::string& output,
                                               const std::vector<std::string>& inputs);

/// Returns an error for a name that updaters, which resolve it as a relative URL, would take for
/// another file.
[[nodiscard]] platform::Status refusalOfName(const std::string& name);

/// Writes the text to standard output and flushes it. Fails if not all of it was written.
[[nodiscard]] platform::Status print(std::string_view text);

/// Prints a JSON object in one line.
[[nodiscard]] platform::Status printJson(const platform::Value::Dictionary& members);

}  // namespace teravolant::release
