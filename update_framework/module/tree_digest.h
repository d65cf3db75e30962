#pragma once

#include <filesystem>
#include <string>

#include "platform/core/result.h"

namespace teravolant::platform {

/// The SHA-256, in hexadecimal digits, of a folder: of the names, kinds, permission bits, contents
/// and link targets of all that is in it, whatever order the file system keeps them in.
Result<std::string> digestOfTree(const std::filesystem::path& folder);

}  // namespace teravolant::platform
