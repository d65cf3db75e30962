#include "support/amplitude_event.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <regex>

#include <gtest/gtest.h>

#include "platform/files.h"
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
        {"", "no name"},
        {"text", std::string("\"quotes\" \\ \n\x01\0 é 🚀", 22)},
        {"náme", true},
        {"none", JsonValue()},
        {"whole", std::int64_t{INT64_MIN}},
        {"real", 0.1},
        {"list", JsonValue::Array{false, JsonValue::Object{{"inner", JsonValue::Array()}}}},
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

TEST_F(Analytics, MakeOneIdentifierForAllProcessesThatAskAtTheSameMoment) {
    constexpr int kProcesses = 4;
    const std::regex form(
        R"((\{[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\})\1{3})");
    for (int round = 0; round < 20; ++round) {
        ASSERT_FALSE(clientDefaults().removeObjectForKey(kDeviceKey));
        int gate[2];
        int answers[2];
        ASSERT_EQ(pipe(gate) + pipe(answers), 0);
        for (int process = 0; process < kProcesses; ++process) {
            if (fork() == 0) {
                char byte = 0;
                close(gate[1]);
                [[maybe_unused]] const auto opened = read(gate[0], &byte, 1);
                const std::string identifier = AmplitudeEvent::getAmplitudeDeviceID();
                _exit(write(answers[1], identifier.data(), identifier.size()) < 0 ? 1 : 0);
            }
        }
        for (const int end : {gate[0], gate[1], answers[1]}) {
            close(end);
        }
        while (wait(nullptr) > 0) {
        }
        std::string identifiers(1000, ' ');
        const auto length = read(answers[0], identifiers.data(), identifiers.size());
        identifiers.resize(static_cast<std::size_t>(length));
        close(answers[0]);
        EXPECT_TRUE(std::regex_match(identifiers, form)) << identifiers;
        EXPECT_TRUE(identifiers.starts_with(AmplitudeEvent::getAmplitudeDeviceID()));
    }
}

}  // namespace
}  // namespace teravolant
