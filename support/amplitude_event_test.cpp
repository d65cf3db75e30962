#include "support/amplitude_event.h"

#include <cmath>
#include <future>
#include <latch>
#include <regex>

#include <gtest/gtest.h>

#include "platform/preferences.h"
#include "testing/temporary_folder.h"

namespace teravolant {
namespace {

using platform::JsonValue;

constexpr const char* kDeviceKey = "Amplitude-DeviceID";

class Analytics : public testing::Test {
  protected:
    Analytics() { setenv("XDG_CONFIG_HOME", _folder.path().c_str(), 1); }

    static platform::UserDefaults clientDefaults() {
        return platform::UserDefaults::forDomain("com.zelto.Teravolant Client");
    }

    static JsonValue::Object eventOf(const AmplitudeEvent& event) {
        const auto body = platform::parseJson(event.dataValue().value());
        return *body.value().object()->at("events").array()->at(0).object();
    }

    fixtures::TemporaryFolder _folder;
};

TEST_F(Analytics, LeaveOutWhatAnEventHasNotAndKnowTheBundlesVersion) {
    const auto event = eventOf(AmplitudeEvent::initWithEventType(std::nullopt));
    EXPECT_EQ(event.at("app_version"), JsonValue("1.0.0.1"));
    EXPECT_FALSE(event.contains("event_type") || event.contains("event_properties"));
}

TEST_F(Analytics, CarryEveryKindOfPropertyAndTheLaterOfTwoOfOneName) {
    const JsonValue::Object properties{
        {"", std::string("\"quotes\" \\ \n\x01\0 é 🚀", 22)},
        {"náme", JsonValue()},
        {"whole", std::int64_t{INT64_MIN}},
        {"list", JsonValue::Array{0.1, true, JsonValue::Object{{"inner", JsonValue::Array()}}}},
    };
    auto event = AmplitudeEvent::initWithEventType("\"type\"\n");
    event.addEventPropertiesWithEventName("whole", "replaced");
    for (const auto& [name, value] : properties) {
        event.addEventPropertiesWithEventName(name, value);
    }
    EXPECT_EQ(eventOf(event).at("event_type"), JsonValue("\"type\"\n"));
    EXPECT_EQ(eventOf(event).at("event_properties"), JsonValue(properties));
}

TEST_F(Analytics, HaveNoDataForAnEventThatCanNotBeSerialised) {
    AmplitudeEvent withoutBody;
    withoutBody.addEventPropertiesWithEventName("name", true);
    EXPECT_EQ(withoutBody.dataValue(), std::nullopt);
    auto event = AmplitudeEvent::initWithEventType("type");
    for (const JsonValue& value : {JsonValue(std::nan("")), JsonValue("\xFF")}) {
        event.addEventPropertiesWithEventName("name", value);
        EXPECT_EQ(event.dataValue(), std::nullopt);
        event.addEventPropertiesWithEventName("name", true);
        EXPECT_TRUE(event.dataValue());
    }
}

TEST_F(Analytics, KeepTheDevicesIdentifierAsItIsStored) {
    const std::pair<platform::PropertyListValue, std::string> table[] = {
        {"", ""}, {"abc", "abc"}, {std::int64_t{7}, "7"}};
    for (const auto& [stored, shown] : table) {
        ASSERT_FALSE(clientDefaults().setObject(stored, kDeviceKey));
        EXPECT_EQ(AmplitudeEvent::getAmplitudeDeviceID(), shown);
    }
    // Where none can be stored, each call makes one.
    setenv("XDG_CONFIG_HOME", "/proc", 1);
    EXPECT_NE(AmplitudeEvent::getAmplitudeDeviceID(), AmplitudeEvent::getAmplitudeDeviceID());
}

TEST_F(Analytics, MakeOneIdentifierForAllThatAskAtTheSameMoment) {
    const std::regex form(
        R"(\{[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\})");
    for (int round = 0; round < 20; ++round) {
        ASSERT_FALSE(clientDefaults().removeObjectForKey(kDeviceKey));
        std::latch gate(4);
        std::vector<std::future<std::string>> answers(4);
        for (auto& answer : answers) {
            answer = std::async(std::launch::async, [&gate] {
                gate.arrive_and_wait();
                return AmplitudeEvent::getAmplitudeDeviceID();
            });
        }
        const std::string identifier = answers[0].get();
        EXPECT_TRUE(std::regex_match(identifier, form)) << identifier;
        for (std::size_t other = 1; other < answers.size(); ++other) {
            EXPECT_EQ(answers[other].get(), identifier);
        }
        EXPECT_EQ(AmplitudeEvent::getAmplitudeDeviceID(), identifier);
    }
}

}  // namespace
}  // namespace teravolant
