#pragma once

#include <string>

#include "platform/core/result.h"
#include "platform/core/version.h"

namespace teravolant {

using platform::ParsedVersion;

/// Whether `updateTo` is strictly newer than `current`. `error` must be empty; if the result is
/// false, it holds the reason. Unlike `ClientUpdater::checkUpdaterVersionNewer`, writes no log
/// line.
[[nodiscard]] bool isVersionNewer(const std::string& current, const std::string& updateTo,
                                  platform::Status& error);

}  // namespace teravolant
