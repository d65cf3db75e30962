#include "support/settings_manager.h"

#include <gtest/gtest.h>

#include "platform/system/preferences.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant {

TEST(SettingsManager, RemovesKeyFromClientDomainOnly) {
    const fixtures::TemporaryFolder folder;
    setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
    const SettingsManager& settings = SettingsManager::sharedInstance();
    const auto client = platform::UserDefaults::forDomain("com.zelto.Teravolant Client");
    ASSERT_FALSE(client.setObject("client's", "key"));
    ASSERT_FALSE(client.setObject("other", "other key"));
    settings.setUserSetting("own", "key");

    settings.removeUserAppSettingForKey("key");
    EXPECT_EQ(client.objectForKey("key"), std::nullopt);
    EXPECT_EQ(client.objectForKey("other key"), SettingsManager::Value("other"));
    EXPECT_EQ(settings.getUserSetting("key", std::nullopt), SettingsManager::Value("own"));
}

}  // namespace teravolant
