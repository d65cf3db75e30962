#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "platform/core/result.h"

namespace teravolant::platform {

/// A few texts under their names, kept as a small property list from one start to the next.
using Record = std::map<std::string, std::string>;

/// Empty when there is none or it can't be read; what is no text is left out.
[[nodiscard]] Record readRecord(const std::filesystem::path& file);

/// Durable on return.
[[nodiscard]] Status writeRecord(const std::filesystem::path& file, const Record& record);

}  // namespace teravolant::platform
