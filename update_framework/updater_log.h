#pragma once

#include <string>

namespace teravolant::platform {

/// Logs a message of the update framework, after the prefix "[SQRLUpdater] ". May be called from
/// any thread.
void logUpdater(const std::string& message);

}  // namespace teravolant::platform
