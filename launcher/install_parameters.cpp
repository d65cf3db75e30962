#include "launcher/install_parameters.h"

#include <optional>

#include "support/logger.h"
#include "support/settings_manager.h"

namespace teravolant {
namespace {

bool isOn(const ArgumentValue& value) {
    return value == ArgumentValue(true) || value == ArgumentValue(std::int64_t{1});
}

/// Logs and returns the setting under the key, or nothing if the argument is missing.
std::optional<bool> decision(const ArgumentDictionary& arguments, const std::string& key) {
    const auto argument = arguments.find(key);
    if (argument == arguments.end()) {
        return std::nullopt;
    }
    const bool on = isOn(argument->second);
    Logger::sharedInstance().logMessage(key + ": " + (on ? "YES" : "NO"));
    return on;
}

}  // namespace

void writeInstallParameters(const ArgumentDictionary& arguments) {
    const SettingsManager& settings = SettingsManager::sharedInstance();
    for (const char* key :
         {"DEFAULT_UI", "AutoUpdateEnable", "BetaProgramDisable", "ProductUsageAnalyticsDisable"}) {
        settings.removeSettingForKey(key);
    }
    if (const auto on = decision(arguments, "AUTO_UPDATE")) {
        settings.setSetting(*on ? "YES" : "NO", "AutoUpdateEnable");
    }
    if (decision(arguments, "BETA_PROGRAM") == false) {
        settings.setSetting(true, "BetaProgramDisable");
    }
    if (decision(arguments, "PRODUCT_USAGE_ANALYTICS") == false) {
        settings.setSetting(true, "ProductUsageAnalyticsDisable");
    }
}

}  // namespace teravolant
