#include "support/standby/amplitude_event.h"

#include <chrono>
#include <cstdint>
#include <utility>

#include "platform/crypto/uuid.h"
#include "platform/system/bundle.h"
#include "platform/system/operating_system.h"
#include "platform/system/preferences.h"
#include "platform/values/printed_form.h"

namespace teravolant {
namespace {

using platform::Value;

/// Not a secret: it only identifies the product and permits posting events.
constexpr const char* kApiKey = "7c41e0b29a5d8f36e2b4c9170d6a3f58";

std::string millisecondsSince1970() {
    const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
    return std::to_string(static_cast<std::int64_t>(now.count() * 1000.0));
}

}  // namespace

AmplitudeEvent AmplitudeEvent::initWithEventType(std::optional<std::string> eventType) {
    Value::Dictionary event;
    if (eventType) {
        event["event_type"] = *std::move(eventType);
    }
    event["device_id"] = getAmplitudeDeviceID();
    event["device_model"] = "Desktop App";
    event["app_version"] = getAppVersion();
    event["platform"] = "osx";
    event["os_name"] = "osx";
    event["os_version"] = getOSVersion();
    event["time"] = millisecondsSince1970();

    AmplitudeEvent result;
    result.bodyObj["api_key"] = kApiKey;
    result.bodyObj["events"] = Value::Array{std::move(event)};
    return result;
}

void AmplitudeEvent::addEventPropertiesWithEventName(std::string eventName, Value eventValue) {
    if (bodyObj.empty()) {
        return;
    }
    Value::Dictionary& event = *bodyObj["events"].array()->front().dictionary();
    Value& properties = event["event_properties"];
    if (properties.isNull()) {
        properties = Value::Dictionary();
    }
    properties.dictionary()->insert_or_assign(std::move(eventName), std::move(eventValue));
}

std::optional<std::string> AmplitudeEvent::dataValue() const {
    if (bodyObj.empty()) {
        return std::nullopt;
    }
    auto data = serialiseJson(bodyObj);
    return data ? std::optional(*std::move(data)) : std::nullopt;
}

std::string AmplitudeEvent::getAmplitudeDeviceID() {
    constexpr const char* kDeviceID = "Amplitude-DeviceID";
    const auto defaults = platform::UserDefaults::forDomain("com.zelto.Teravolant Client");
    auto stored = defaults.objectForKey(kDeviceID);
    if (!stored) {
        std::string identifier = "{" + platform::randomUuid() + "}";
        // If another process has stored one in the meantime, use that one.
        auto storedNow =
            defaults.updateObject(kDeviceID, [&identifier](const platform::Value& other) {
                return other.isNull() ? platform::Value(identifier) : other;
            });
        if (!storedNow) {
            return identifier;
        }
        stored = *std::move(storedNow);
    }
    return printedForm(*stored);
}

std::string AmplitudeEvent::getOSVersion() {
    const auto version = platform::operatingSystemVersion();
    return std::to_string(version.majorVersion) + "." + std::to_string(version.minorVersion);
}

std::string AmplitudeEvent::getAppVersion() {
    return platform::Bundle::mainBundle().shortVersion().value_or("UNSET");
}

}  // namespace teravolant
