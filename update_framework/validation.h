#pragma once

#include <filesystem>

#include "platform/core/result.h"

// Whether a bundle can run on this computer and could update itself from there. Both operations
// block, for some tenths of a second as a rule.
//
// A failure that would occur again is an error with `SQRLUpdaterErrorRefusedBundle`, see
// `isBadBundle`. A failure that can pass by itself, such as a timeout, has another code.
namespace teravolant::platform {

/// Checks a bundle whose tree was verified, before it is installed: every ELF file is complete, for
/// this machine, and the system's loader resolves all its dependencies; and the bundle's own
/// program `selfcheck` reports success within 10 seconds. `selfcheck` may write only below a
/// temporary home in `folder`, where the kernel has Landlock.
[[nodiscard]] Status validateBundle(const std::filesystem::path& bundle,
                                    const std::filesystem::path& folder);

/// The same for an installed bundle, with its `selfcheck --offline` alone and its staging folder.
[[nodiscard]] Status checkInPlace(const std::filesystem::path& bundle);

/// Whether the bundle would fail again on this computer.
[[nodiscard]] bool isBadBundle(const Error& error);

}  // namespace teravolant::platform
