#include "support/standby/amplitude_event.h"

#include <gtest/gtest.h>

#include "platform/system/preferences.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant {

using platform::Value;

class Analytics : public testing::Test {
  protected:
    Analytics() { setenv("XDG_CONFIG_HOME", _folder.path().c_str(), 1); }

    static platform::UserDefaults clientDefaults() {
        return platform::UserDefaults::forDomain("com.zelto.Teravolant Client");
    }

    fixtures::TemporaryFolder _folder;
};

TEST_F(Analytics, CarryEveryKindOfProperty) {
    const Value::Dictionary properties{
        {"", std::string("\"quotes\" \\ \n\x01\0 é 🚀", 22)},
        {"náme", Value()},
        {"whole", std::int64_t{INT64_MIN}},
        {"list", Value::Array{0.1, true, Value::Dictionary{{"inner", Value::Array()}}}},
    };
    auto event = AmplitudeEvent::initWithEventType("\"type\"\n");
    event.addEventPropertiesWithEventName("whole", "replaced");
    for (const auto& [name, value] : properties) {
        event.addEventPropertiesWithEventName(name, value);
    }
    const auto body = platform::parseJson(*event.dataValue());
    const auto& sent = *body->dictionary()->at("events").array()->at(0).dictionary();
    EXPECT_EQ(sent.at("event_type"), Value("\"type\"\n"));
    EXPECT_EQ(sent.at("event_properties"), Value(properties));
    EXPECT_EQ(sent.at("app_version"), Value("1.0.0.1"));
    event.addEventPropertiesWithEventName("not serialisable", "\xFF");
    EXPECT_EQ(event.dataValue(), std::nullopt);
    EXPECT_EQ(AmplitudeEvent().dataValue(), std::nullopt);
}

TEST_F(Analytics, KeepStoredDeviceIdentifier) {
    const std::pair<platform::Value, std::string> table[] = {
        {"", ""}, {"abc", "abc"}, {std::int64_t{7}, "7"}};
    for (const auto& [stored, shown] : table) {
        ASSERT_FALSE(clientDefaults().setObject(stored, "Amplitude-DeviceID"));
        EXPECT_EQ(AmplitudeEvent::getAmplitudeDeviceID(), shown);
    }
    // If none can be stored, each call makes a new one.
    setenv("XDG_CONFIG_HOME", "/proc", 1);
    EXPECT_NE(AmplitudeEvent::getAmplitudeDeviceID(), AmplitudeEvent::getAmplitudeDeviceID());
}

}  // namespace teravolant
