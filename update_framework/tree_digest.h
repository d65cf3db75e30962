#pragma once

#include <filesystem>
#include <string>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Returns the BLAKE2b-256 digest, in hexadecimal digits, of a directory tree: of the names, types,
/// permission bits, contents and link targets of its items. Does not depend on the file system's
/// order. Fails for an item that is not a file, a folder or a link.
Result<std::string> digestOfTree(const std::filesystem::path& folder);

}  // namespace teravolant::platform
