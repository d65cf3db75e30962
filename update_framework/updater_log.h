#pragma once

#include <string>

namespace teravolant::platform {

/// Logs a message of the update framework, with its prefix. May be called from any thread.
void logUpdater(const std::string& message);

}  // namespace teravolant::platform
