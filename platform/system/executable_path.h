#pragma once

#include <filesystem>

namespace teravolant::platform {

/// Returns the absolute path of the running executable, with links resolved, as of the first call.
/// Make that call at the program's start: the file can be moved while the program runs.
[[nodiscard]] const std::filesystem::path& executablePathOfThisProcess();

}  // namespace teravolant::platform
