#pragma once

namespace teravolant::platform {

/// Returns the version that this program was built as, as in "1.0.0.1".
[[nodiscard]] const char* buildVersion();

}  // namespace teravolant::platform
