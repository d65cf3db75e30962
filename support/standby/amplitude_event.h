#pragma once

#include <optional>
#include <string>

#include "platform/values/json.h"

namespace teravolant {

/// The body of one request to the analytics service's HTTP interface, version 2: an event with the
/// device, the application and the system that it comes from, its time, and named properties.
///
/// A plain value; belongs to one thread at a time.
class AmplitudeEvent {
  public:
    /// An event of now. Without a type, the body has none.
    static AmplitudeEvent initWithEventType(std::optional<std::string> eventType);

    /// An event without a body: properties change nothing, and it has no data.
    AmplitudeEvent() = default;

    /// A later value for the same name replaces the earlier one.
    void addEventPropertiesWithEventName(std::string eventName, platform::Value eventValue);

    /// The body as compact JSON in UTF-8. Nothing when a text in it is not UTF-8, a number is not
    /// finite, or a value nests deeper than `platform::kDeepestJson` allows.
    [[nodiscard]] std::optional<std::string> dataValue() const;

    /// The anonymous identifier of this user on this device, a random UUID in braces. Made and
    /// stored durably, in the client's preference domain, by the first call in any process; one
    /// that can't be stored is a new one on every call. Another text that is stored is taken as it
    /// is, and anything else in its printed form.
    [[nodiscard]] static std::string getAmplitudeDeviceID();

    /// Major and minor version of the running Linux kernel, as in "6.1".
    [[nodiscard]] static std::string getOSVersion();

    /// The main bundle's "CFBundleShortVersionString", or "UNSET" when there is no such text.
    [[nodiscard]] static std::string getAppVersion();

  private:
    platform::Value::Dictionary bodyObj;
};

}  // namespace teravolant
