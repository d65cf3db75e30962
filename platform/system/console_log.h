#pragma once

#include <string_view>

namespace teravolant::platform {

/// Writes one line to standard error, with one `write`: local time, process name, process id and
/// the message. Ignores a failed write. May be called from any thread.
void logToConsole(std::string_view message);

/// From now on, `logToConsole` writes nothing: for a program that tells the user itself what it
/// does. Call it before other threads are started.
void switchConsoleLogOff();

}  // namespace teravolant::platform
