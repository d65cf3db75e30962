#pragma once

#include <filesystem>
#include <string>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Returns the BLAKE2b-256 digest of a directory tree, in hexadecimal digits: of the names, kinds,
/// permission bits, contents and link targets of the folder and everything in it.
///
/// The digest is that of one record per item, in the byte order of their paths: the path relative
/// to the folder (empty for the folder itself), the kind ("d", "f" or "l"), the permission bits in
/// octal digits (empty for a link), and the digest of a file's contents or the target of a link
/// (empty for a folder), each followed by a NUL. Fails for an item of another kind.
Result<std::string> digestOfTree(const std::filesystem::path& folder);

}  // namespace teravolant::platform
