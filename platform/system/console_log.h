#pragma once

#include <string_view>

namespace teravolant::platform {

/// Writes one message to the console log, which is standard error: local time, process name and id
/// in front, a line feed behind, in one write. May be called from any thread; a console that can't
/// take it is no error.
void logToConsole(std::string_view message);

}  // namespace teravolant::platform
