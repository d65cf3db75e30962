#pragma once

#include <string_view>

namespace teravolant::platform {

/// Writes one line to standard error, with one `write`: local time, process name, process id and
/// the message. Ignores a failed write. May be called from any thread.
void logToConsole(std::string_view message);

}  // namespace teravolant::platform
