#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

// Times as "2001-02-03T04:05:06Z": RFC 3339 in UTC, with whole seconds and a year from 0001 to
// 9999.
namespace teravolant::platform {

/// Returns the computer's clock.
[[nodiscard]] std::chrono::sys_seconds currentUtcTime();

/// Returns nothing for any other form and for a time that does not exist. A leap second is not
/// accepted.
[[nodiscard]] std::optional<std::chrono::sys_seconds> utcTimeIn(std::string_view text);

/// A time outside of the years becomes the first or the last second of them.
[[nodiscard]] std::string utcTimeText(std::chrono::sys_seconds time);

}  // namespace teravolant::platform
