#pragma once

#include <optional>
#include <string_view>

#include "platform/core/frames.h"
#include "platform/core/result.h"
#include "platform/system/confinement.h"

// What the programs `fetch` and `unpack` share: they write frames to their standard output.
namespace teravolant {

/// Returns the process id of the launcher, the program's one argument. Prints a usage error and
/// returns nothing if a person started the program.
std::optional<int> launcherIn(int argc, const char* const* argv);

/// Ends the process if the launcher does not read any more.
void writeFrame(platform::FrameKind kind, std::string_view payload);

void reportConfinement(const platform::Confinement& confinement);

/// Writes the result and ends the process.
[[noreturn]] void finish(const platform::Status& result);

}  // namespace teravolant
