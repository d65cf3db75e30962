#pragma once

#include "platform/core/result.h"

namespace teravolant::platform {

/// Loads and initialises the system's libcurl on the first call. Fails with an error of
/// `kHttpErrorDomain` that names the library and the packages that contain it. Must precede every
/// other use of libcurl in the process. Not thread-safe.
[[nodiscard]] Status loadCurl();

}  // namespace teravolant::platform
