#pragma once

#include <ctime>
#include <string_view>

namespace teravolant::platform {

/// The second as local time, "yyyy-MM-dd HH:mm:ss". Valid until the calling thread's next call.
[[nodiscard]] std::string_view localTimeText(std::time_t second);

}  // namespace teravolant::platform
