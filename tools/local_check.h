#pragma once

#include <chrono>
#include <filesystem>

#include "platform/core/result.h"

namespace teravolant::release {

/// Runs the bundle's own `selfcheck --offline` on this computer, with a temporary home and none of
/// this program's environment variables but those that name certificates. Blocks.
///
/// Fails with the reason that it prints, or if it is missing, is killed or does not end within
/// `patience`.
[[nodiscard]] platform::Status checkRunsHere(const std::filesystem::path& bundle,
                                             std::chrono::seconds patience);

}  // namespace teravolant::release
