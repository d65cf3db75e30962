#pragma once

#include <string>

#include "platform/values/property_list.h"

namespace teravolant::platform {

/// Returns a property-list value as a log line shows it. A dictionary is a block in braces with one
/// line per key, in the order of the keys. An array is a block in parentheses. In such a block, a
/// string stands between double quotes unless it consists of ASCII letters, digits and underscores.
[[nodiscard]] std::string printedForm(const Value& value);

}  // namespace teravolant::platform
