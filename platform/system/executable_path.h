#pragma once

#include <filesystem>

namespace teravolant::platform {

/// Returns the absolute path of the running executable, with links resolved, as it was on the first
/// call. Call it at the program's start: the file can be moved while the program runs.
[[nodiscard]] const std::filesystem::path& executablePathOfThisProcess();

}  // namespace teravolant::platform
