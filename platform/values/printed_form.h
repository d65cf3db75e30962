#pragma once

#include <string>

#include "platform/values/property_list.h"

namespace teravolant::platform {

/// The value as a log line shows it: a dictionary as a braced block with one line for each key, in
/// the keys' order, an array as a block in parentheses, a text between double quotes unless it is
/// one word of ASCII letters, digits and underscores.
[[nodiscard]] std::string printedForm(const Value& value);

}  // namespace teravolant::platform
