#pragma once

#include <filesystem>
#include <vector>

#include "platform/core/result.h"

// Checks of a bundle's parts, by their files: nothing of the bundle is run. Messages begin with the
// part's path, from the bundle's name on.
//
// A part that is missing or can't be used is an error with `SQRLUpdaterErrorRefusedBundle`. A file
// that can't be read at this time, for example for lack of memory, has another code.
namespace teravolant::platform {

/// Checks a program that must be in the bundle: a regular file inside it, which its owner may
/// execute, and which is a script or a complete ELF program for this machine.
[[nodiscard]] Status checkProgram(const std::filesystem::path& bundle,
                                  const std::filesystem::path& program);

/// Checks that the bundle has readable property lists of both launch agents.
[[nodiscard]] Status checkAgents(const std::filesystem::path& bundle);

/// Returns all ELF files of the bundle. Fails if one is incomplete or for another machine.
Result<std::vector<std::filesystem::path>> elfFilesIn(const std::filesystem::path& bundle);

}  // namespace teravolant::platform
