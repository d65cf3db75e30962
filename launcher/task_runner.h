#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/result.h"

namespace teravolant {

/// Runs a program without a shell and logs the call and what it wrote to its standard output.
/// Blocks until the program has closed that; its exit status is not looked at. A program that
/// can't be launched is reported as `reportError` does.
void runTask(const std::filesystem::path& executable, const std::vector<std::string>& arguments);

/// Logs the error's code and description; nothing when there is none.
void reportError(const platform::Status& error);

}  // namespace teravolant
