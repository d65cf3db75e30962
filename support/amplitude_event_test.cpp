#include "support/amplitude_event.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <regex>
#include <set>

#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/preferences.h"
#include "testing/temporary_folder.h"

namespace teravolant {
namespace {

using platform::JsonValue;

class Analytics : public testing::Test {
  protected:
    Analytics() { setenv("XDG_CONFIG_HOME", _folder.path().c_str(), 1); }

    static platform::UserDefaults clientDefaults() {
        return platform::UserDefaults::forDomain("com.zelto.Teravolant Client");
    }

    void forgetTheDevice() {
        ASSERT_FALSE(clientDefaults().removeObjectForKey("Amplitude-DeviceID"));
    }

    static JsonValue::Object eventOf(const AmplitudeEvent& event) {
        const auto body = platform::parseJson(event.dataValue().value());
        return *body.value().object()->at("events").array()->at(0).object();
    }

    fixtures::TemporaryFolder _folder;
};

TEST_F(Analytics, KnowTheBundlesVersionAndLeaveOutWhatAnEventHasNot) {
    const auto event = eventOf(AmplitudeEvent::initWithEventType(std::nullopt));
    EXPECT_EQ(event.at("app_version"), JsonValue("1.0.0.1"));
    EXPECT_FALSE(event.contains("event_type"));
    EXPECT_FALSE(event.contains("event_properties"));
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
    for (const JsonValue& value : {JsonValue(std::nan("")), JsonValue("\xFF")}) {
        auto event = AmplitudeEvent::initWithEventType("type");
        event.addEventPropertiesWithEventName("name", value);
        EXPECT_EQ(event.dataValue(), std::nullopt);
        event.addEventPropertiesWithEventName("name", true);
        EXPECT_TRUE(event.dataValue());
    }
    AmplitudeEvent withoutBody;
    withoutBody.addEventPropertiesWithEventName("name", true);
    EXPECT_EQ(withoutBody.dataValue(), std::nullopt);
}

TEST_F(Analytics, KeepTheDevicesIdentifierAsItWasStored) {
    const std::string identifier = AmplitudeEvent::getAmplitudeDeviceID();
    EXPECT_TRUE(std::regex_match(
        identifier,
        std::regex(R"(\{[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\})")))
        << identifier;
    EXPECT_EQ(clientDefaults().objectForKey("Amplitude-DeviceID"),
              platform::PropertyListValue(identifier));
    EXPECT_EQ(AmplitudeEvent::getAmplitudeDeviceID(), identifier);
    for (const auto& [stored, shown] :
         std::map<std::string, std::pair<platform::PropertyListValue, std::string>>{
             {"empty", {"", ""}},
             {"another's", {"abc", "abc"}},
             {"number", {std::int64_t{7}, "7"}}}) {
        ASSERT_FALSE(clientDefaults().setObject(shown.first, "Amplitude-DeviceID"));
        EXPECT_EQ(AmplitudeEvent::getAmplitudeDeviceID(), shown.second) << stored;
    }
}

TEST_F(Analytics, MakeOneIdentifierForAllProcessesThatAskAtTheSameMoment) {
    constexpr int kProcesses = 4;
    constexpr std::size_t kLength = 38;
    for (int round = 0; round < 20; ++round) {
        forgetTheDevice();
        int gate[2];
        int answers[2];
        ASSERT_EQ(pipe(gate) + pipe(answers), 0);
        for (int process = 0; process < kProcesses; ++process) {
            if (fork() == 0) {
                char byte = 0;
                close(gate[1]);
                [[maybe_unused]] const auto opened = read(gate[0], &byte, 1);
                const std::string identifier = AmplitudeEvent::getAmplitudeDeviceID();
                _exit(write(answers[1], identifier.data(), identifier.size()) == kLength ? 0 : 1);
            }
        }
        for (const int end : {gate[0], gate[1], answers[1]}) {
            close(end);
        }
        std::set<std::string> identifiers;
        std::string identifier(kLength, '\0');
        for (int process = 0; process < kProcesses; ++process) {
            ASSERT_EQ(read(answers[0], identifier.data(), kLength), ssize_t{kLength});
            identifiers.insert(identifier);
        }
        close(answers[0]);
        while (wait(nullptr) > 0) {
        }
        EXPECT_EQ(identifiers, std::set<std::string>{AmplitudeEvent::getAmplitudeDeviceID()});
    }
}

TEST_F(Analytics, MakeANewIdentifierEachTimeWhereNoneCanBeStored) {
    setenv("XDG_CONFIG_HOME", "/proc", 1);
    EXPECT_NE(AmplitudeEvent::getAmplitudeDeviceID(), AmplitudeEvent::getAmplitudeDeviceID());
}

}  // namespace
}  // namespace teravolant
