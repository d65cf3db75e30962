#pragma once

#include <optional>
#include <string>

#include "platform/values/json.h"

namespace teravolant {

/// The body of one request to the analytics service's HTTP interface, version 2: an event with its
/// device, application, system, time and named properties.
///
/// A plain value, used by one thread at a time.
class AmplitudeEvent {
  public:
    /// Makes an event with the current time. Without a type, the body has no type member.
    static AmplitudeEvent initWithEventType(std::optional<std::string> eventType);

    /// Makes an event without a body: it ignores properties and has no data.
    AmplitudeEvent() = default;

    /// A later value for the same name replaces the earlier one.
    void addEventPropertiesWithEventName(std::string eventName, platform::Value eventValue);

    /// Returns the body as compact JSON in UTF-8, or nothing if it contains a text that is not
    /// UTF-8, a number that is not finite, or nesting deeper than `platform::kDeepestJson`.
    [[nodiscard]] std::optional<std::string> dataValue() const;

    /// Returns the anonymous identifier of this user on this device: a random UUID in braces. The
    /// first call in any process stores it durably in the client's preference domain. If it can't
    /// be stored, every call returns a new one. Returns any other stored text unchanged, and a
    /// stored value that is not a text in its printed form.
    [[nodiscard]] static std::string getAmplitudeDeviceID();

    /// Returns the major and minor version of the running Linux kernel, as in "6.1".
    [[nodiscard]] static std::string getOSVersion();

    /// Returns the main bundle's "CFBundleShortVersionString", or "UNSET" if it has none.
    [[nodiscard]] static std::string getAppVersion();

  private:
    platform::Value::Dictionary bodyObj;
};

}  // namespace teravolant
