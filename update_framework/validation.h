#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/core/result.h"

// Checks that a bundle can run on this computer and could update itself. All operations block,
// usually for some tenths of a second.
//
// A failure that would occur again is an error with `SQRLUpdaterErrorRefusedBundle`, see
// `isBadBundle`. A failure that can pass by itself, such as a timeout, has another code.
namespace teravolant::platform {

/// Runs the bundle's own program `selfcheck`, which has 10 seconds to report success. It gets the
/// caller's environment, but a temporary home, which is created as `home` and removed. Where the
/// kernel has Landlock, it can change files only there.
[[nodiscard]] Status runSelfCheck(const std::filesystem::path& bundle,
                                  const std::vector<std::string>& arguments,
                                  const std::filesystem::path& home);

/// Checks a bundle whose tree was verified, before it is installed: every ELF file is complete, for
/// this machine, and the system's loader resolves all its dependencies; and its `selfcheck` passes,
/// with a home in `folder`. The caller ensures that only one process uses the folder.
[[nodiscard]] Status validateBundle(const std::filesystem::path& bundle,
                                    const std::filesystem::path& folder);

/// Checks an installed bundle with `selfcheck --offline`, with a home in its staging folder.
[[nodiscard]] Status checkInPlace(const std::filesystem::path& bundle);

/// Whether the bundle would fail again on this computer.
[[nodiscard]] bool isBadBundle(const Error& error);

}  // namespace teravolant::platform
