#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/values/property_list.h"

namespace teravolant {

/// Where the launcher keeps what outlives the process, in three preference domains: the product's
/// machine-wide one (written by the superuser's runs, read by all), the launcher's own per-user
/// one, and the client's per-user one.
///
/// Values pass through unchanged. No operation reports a failure: a write that is refused leaves
/// the previous value, and a read then answers that value or the caller's default. Writes are
/// durable on return.
class SettingsManager {
  public:
    using Value = platform::Value;

    /// Created on the first call and kept until the process ends.
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
