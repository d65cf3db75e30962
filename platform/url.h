#pragma once

#include <filesystem>
#include <string>

namespace teravolant::platform {

/// The file URL of an absolute path (RFC 8089), percent-encoded as RFC 3986 asks for in a path.
[[nodiscard]] std::string fileUrl(const std::filesystem::path& path);

}  // namespace teravolant::platform
