#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/core/result.h"

namespace teravolant {

/// Runs a program without a shell and logs the call and the program's standard output. Blocks until
/// the program closes its standard output; ignores its exit status. Passes a launch failure to
/// `reportError`.
void runTask(const std::filesystem::path& executable, const std::vector<std::string>& arguments);

/// Logs the error's code and description. Does nothing on success.
void reportError(const platform::Status& error);

}  // namespace teravolant
