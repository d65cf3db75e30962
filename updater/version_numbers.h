#pragma once

#include <string>

#include "platform/core/result.h"

namespace teravolant {

/// The numbers of a version as their digits in the text, leading zeros included.
struct ParsedVersion {
    std::string major;
    std::string minor;
    std::string patch;
    std::string build;

    friend bool operator==(const ParsedVersion&, const ParsedVersion&) = default;
};

/// Whether `updateTo` is strictly newer than `current`. `error` must be empty; if the result is
/// false, it holds the reason. Unlike `ClientUpdater::checkUpdaterVersionNewer`, writes no log
/// line.
[[nodiscard]] bool isVersionNewer(const std::string& current, const std::string& updateTo,
                                  platform::Status& error);

}  // namespace teravolant
