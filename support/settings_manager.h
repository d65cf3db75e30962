#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/values/property_list.h"

namespace teravolant {

/// The preference store, with three domains: the product's machine-wide domain (written by the
/// superuser, read by every user), the launcher's per-user domain, and the client's per-user
/// domain.
///
/// Values pass through unchanged. No operation reports a failure: a refused write keeps the
/// previous value, and a read returns the stored value or the caller's default. Writes are durable
/// on return.
class SettingsManager {
  public:
    using Value = platform::Value;

    /// Creates the store on the first call. It lives until the process ends.
    static SettingsManager& sharedInstance();

    /// Machine-wide domain.
    [[nodiscard]] std::optional<Value> getSettingForKey(std::string_view key,
                                                        std::optional<Value> defaultValue) const;
    void setSetting(Value value, std::string_view key) const;
    void removeSettingForKey(std::string_view key) const;

    /// The running application's domain.
    void setUserSetting(Value value, std::string_view key) const;
    [[nodiscard]] std::optional<Value> getUserSetting(std::string_view key,
                                                      std::optional<Value> defaultValue) const;

    /// The client's domain.
    void removeUserAppSettingForKey(std::string_view key) const;

  private:
    std::string appID = "com.zelto.teravolant";
    std::string userAppID = "com.zelto.Teravolant Client";
};

}  // namespace teravolant
