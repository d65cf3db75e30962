#pragma once

#include <filesystem>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Checks that the system's dynamic loader finds all libraries, symbols and symbol versions that an
/// ELF program or shared library needs. A statically linked file needs none. Does not run the
/// program, and does not check its permissions. Blocks for at most 5 seconds. May be called from
/// any thread.
///
/// Fails with `NSExecutableNotLoadableError` and the loader's own message if something is missing.
/// Any other error means that the check was not possible and can pass by itself. It is in
/// `kProgramErrorDomain` (see confined_program.h) if the loader hung or was killed.
Status checkLoadable(const std::filesystem::path& elfFile);

}  // namespace teravolant::platform
