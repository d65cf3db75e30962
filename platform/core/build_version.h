#pragma once

namespace teravolant::platform {

/// Returns the version of this build, for example "1.0.0.1".
[[nodiscard]] const char* buildVersion();

}  // namespace teravolant::platform
