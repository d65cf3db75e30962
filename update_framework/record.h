#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Strings under their names, stored as a property list.
using Record = std::map<std::string, std::string>;

/// Returns an empty record if the file is missing or unreadable. Skips entries that are not
/// strings.
[[nodiscard]] Record readRecord(const std::filesystem::path& file);

/// The same for a record in memory.
[[nodiscard]] Record recordIn(std::string_view propertyList);

/// Returns the property list that stores the record.
[[nodiscard]] std::string textOf(const Record& record);

/// Atomically and durably replaces the file; its mode is 0600.
[[nodiscard]] Status writeRecord(const std::filesystem::path& file, const Record& record);

}  // namespace teravolant::platform
