#pragma once

#include <optional>
#include <string_view>

#include "platform/core/frames.h"
#include "platform/core/result.h"
#include "platform/system/confinement.h"

// What the programs `fetch` and `unpack` share: they write frames to their standard output.
namespace teravolant {

/// Returns the process id of the launcher, which is the only argument. Prints a usage error and
/// returns nothing for other arguments.
std::optional<int> launcherIn(int argc, const char* const* argv);

/// Returns the process id that an argument contains, or nothing.
std::optional<int> processIdIn(std::string_view argument);

/// Writes one frame. Exits with status 1 if the launcher does not read any more.
void writeFrame(platform::FrameKind kind, std::string_view payload);

/// Writes the first frame.
void reportConfinement(const platform::Confinement& confinement);

/// Writes the end or the error as the last frame and exits with status 0.
[[noreturn]] void finish(const platform::Status& result);

}  // namespace teravolant
