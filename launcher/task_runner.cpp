#include "launcher/task_runner.h"

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/url.h"
#include "platform/system/process.h"
#include "support/logger.h"

namespace teravolant {
namespace {

std::string joined(const std::vector<std::string>& arguments) {
    std::string text;
    for (const std::string& argument : arguments) {
        text += argument + " ";
    }
    return text.substr(0, text.empty() ? 0 : text.size() - 1);
}

}  // namespace

void runTask(const std::filesystem::path& executable, const std::vector<std::string>& arguments) {
    const platform::TaskResult result = platform::runToEndOfOutput(executable, arguments);
    Logger& logger = Logger::sharedInstance();
    logger.logMessage("Call " + platform::fileUrl(executable) + " " + joined(arguments) +
                      ". Returned:");
    logger.logMessage(platform::isAscii(result.standardOutput) ? result.standardOutput
                                                               : platform::kMissingValueMark);
    reportError(result.launchError);
}

void reportError(const platform::Status& error) {
    if (!error) {
        return;
    }
    Logger& logger = Logger::sharedInstance();
    logger.logMessage("Error code: " + std::to_string(error->code));
    logger.logMessage("Error description: " + error->localizedDescription);
}

}  // namespace teravolant
