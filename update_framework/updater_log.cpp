#include "update_framework/updater_log.h"

#include "support/logger.h"

namespace teravolant::platform {

void logUpdater(const std::string& message) {
    Logger::sharedInstance().logMessage("[SQRLUpdater] " + message);
}

}  // namespace teravolant::platform
