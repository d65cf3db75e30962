#pragma once

#include <stop_token>
#include <string>

#include "platform/core/result.h"

namespace teravolant::release {

/// Packs the bundle at `path` into `archive`, with a progress bar on a terminal. Fails for a bundle
/// that updaters would not find or could not compare. Warns if it has no public key.
[[nodiscard]] platform::Status packBundle(const std::string& path, const std::string& archive,
                                          const std::stop_token& stop);

}  // namespace teravolant::release
