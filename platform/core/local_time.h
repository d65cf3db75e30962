#pragma once

#include <ctime>
#include <string_view>

namespace teravolant::platform {

/// Returns `second` in local time as "yyyy-MM-dd HH:mm:ss". The text is valid until the next call
/// of the same thread.
[[nodiscard]] std::string_view localTimeText(std::time_t second);

}  // namespace teravolant::platform
