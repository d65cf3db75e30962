#include "support/settings_manager.h"

#include "platform/system/preferences.h"

namespace teravolant {
namespace {

using platform::UserDefaults;
using Value = SettingsManager::Value;

std::optional<Value> storedOrDefault(const UserDefaults& domain, std::string_view key,
                                     std::optional<Value> defaultValue) {
    auto stored = domain.objectForKey(key);
    return stored ? std::move(stored) : std::move(defaultValue);
}

}  // namespace

SettingsManager& SettingsManager::sharedInstance() {
    static SettingsManager& manager = *new SettingsManager();
    return manager;
}

std::optional<Value> SettingsManager::getSettingForKey(std::string_view key,
                                                       std::optional<Value> defaultValue) const {
    return storedOrDefault(UserDefaults::forAnyUser(appID), key, std::move(defaultValue));
}

void SettingsManager::setSetting(Value value, std::string_view key) const {
    (void)UserDefaults::forAnyUser(appID).setObject(std::move(value), key);
}

void SettingsManager::removeSettingForKey(std::string_view key) const {
    (void)UserDefaults::forAnyUser(appID).removeObjectForKey(key);
}

void SettingsManager::setUserSetting(Value value, std::string_view key) const {
    (void)UserDefaults::standardUserDefaults().setObject(std::move(value), key);
}

std::optional<Value> SettingsManager::getUserSetting(std::string_view key,
                                                     std::optional<Value> defaultValue) const {
    return storedOrDefault(UserDefaults::standardUserDefaults(), key, std::move(defaultValue));
}

void SettingsManager::removeUserAppSettingForKey(std::string_view key) const {
    (void)UserDefaults::forDomain(userAppID).removeObjectForKey(key);
}

}  // namespace teravolant
